// The delegate that the frame pool calls when a frame waits. It is agile (IAgileObject, and
// IMarshal through a free-threaded marshaler made on demand), so that the platform may call it
// on any thread; Invoke only sets the flag it shares with the capture.
#pragma once

#include <objbase.h>
#include <windows.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "windows.graphics.capture.h"

using FrameArrivedDelegate =
    ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*,
                                                 IInspectable*>;

class FrameArrivedHandler final : public FrameArrivedDelegate, public IAgileObject {
 public:
  // The flag is shared, not borrowed: an Invoke in flight while the capture goes, or a pool that
  // could not be closed, still writes into memory that lives.
  explicit FrameArrivedHandler(std::shared_ptr<std::atomic<bool>> frameReady);
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
  const std::shared_ptr<std::atomic<bool>> frameReady;
  std::mutex marshalerMutex;
  IUnknown* marshaler = nullptr;  // the free-threaded marshaler's own IUnknown, once asked for
};
