// The delegate that the frame pool calls when a frame waits. It is agile (IAgileObject, and
// IMarshal through a free-threaded marshaler made on demand), so that the platform may call it
// on any thread; Invoke only sets the capture's frameReady flag.
#pragma once

#include <objbase.h>
#include <windows.h>

#include <atomic>
#include <mutex>

#include "windows.graphics.capture.h"

class WgcWindowCapture;

using FrameArrivedDelegate =
    ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*,
                                                 IInspectable*>;

class FrameArrivedHandler final : public FrameArrivedDelegate, public IAgileObject {
 public:
  // `capture` is not owned: its pool is closed before it goes.
  explicit FrameArrivedHandler(WgcWindowCapture* capture);
  FrameArrivedHandler(const FrameArrivedHandler&) = delete;
  FrameArrivedHandler& operator=(const FrameArrivedHandler&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE Invoke(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool* sender,
                                   IInspectable* args) override;

 private:
  ~FrameArrivedHandler();
  HRESULT queryMarshaler(void** ppvObject);

  std::atomic<ULONG> references{1};
  WgcWindowCapture* const capture;
  std::mutex marshalerMutex;
  IUnknown* marshaler = nullptr;  // the free-threaded marshaler's own IUnknown, once asked for
};
