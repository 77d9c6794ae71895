// GraphicsCaptureSession: starts its pool's delivery of one window's frames. It holds the pool
// and the item, as the real session does, so that either may be released first.
#pragma once

#include <mutex>

#include "platform/wgc/capture_item.h"
#include "platform/wgc/frame_pool.h"

namespace platform::wgc {

using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession2;

class CaptureSession final : public IGraphicsCaptureSession,
                             public IGraphicsCaptureSession2,
                             public IClosable,
                             public IAgileObject,
                             public ComObject {
 public:
  CaptureSession(CaptureFramePool* pool, CaptureItem* item);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.Capture.GraphicsCaptureSession")

  HRESULT STDMETHODCALLTYPE StartCapture() override;
  HRESULT STDMETHODCALLTYPE get_IsCursorCaptureEnabled(boolean* value) override;
  HRESULT STDMETHODCALLTYPE put_IsCursorCaptureEnabled(boolean value) override;
  HRESULT STDMETHODCALLTYPE Close() override;

 private:
  void* interfaceFor(REFIID riid) override;
  // Disposing the session ends its capture.
  void lastReference() override;
  void releaseResources() override;

  std::mutex mutex;
  CaptureFramePool* pool;  // a reference; null once closed
  CaptureItem* item;       // a reference; null once closed
  bool started = false;
  // Windows draws the pointer into frames unless this is cleared; the platform's windows have
  // no pointer in them, so it is kept and read back only.
  bool cursorCaptureEnabled = true;
};

}  // namespace platform::wgc
