// IDXGIOutputDuplication over an output's desktop. The desktop image lives in one texture on the
// duplicating device, handed out as the same IDXGIResource with every frame. A frame comes only
// when the image or the pointer changed; the first acquire gives the current image at once.
#pragma once

#include <memory>
#include <mutex>

#include "dxgi1_2.h"
#include "platform/core/com_object.h"
#include "platform/core/private_data.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"
#include "platform/desktop/desktop_model.h"
#include "platform/desktop/x_screen.h"
#include "platform/dxgi/dxgi_objects.h"

namespace platform::desktop {

struct DesktopState;

// IDXGIOutput1::DuplicateOutput, past its gate and its null checks.
HRESULT duplicateOutput(dxgi::Output* output, IUnknown* device, IDXGIOutputDuplication** out);

class OutputDuplication final : public IDXGIOutputDuplication, public ComObject {
 public:
  OutputDuplication(dxgi::Output* output, d3d11::Device* device, std::shared_ptr<OutputDesktop> desktop,
                    std::unique_ptr<XScreenGrabber> grabber);
  PLATFORM_IUNKNOWN_METHODS

  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) override;
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) override;
  HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;

  void STDMETHODCALLTYPE GetDesc(DXGI_OUTDUPL_DESC* pDesc) override;
  HRESULT STDMETHODCALLTYPE AcquireNextFrame(UINT TimeoutInMilliseconds, DXGI_OUTDUPL_FRAME_INFO* pFrameInfo,
                                             IDXGIResource** ppDesktopResource) override;
  HRESULT STDMETHODCALLTYPE GetFrameDirtyRects(UINT DirtyRectsBufferSize, RECT* pDirtyRectsBuffer,
                                               UINT* pDirtyRectsBufferSizeRequired) override;
  HRESULT STDMETHODCALLTYPE GetFrameMoveRects(UINT MoveRectsBufferSize, DXGI_OUTDUPL_MOVE_RECT* pMoveRectBuffer,
                                              UINT* pMoveRectsBufferSizeRequired) override;
  HRESULT STDMETHODCALLTYPE GetFramePointerShape(UINT PointerShapeBufferSize, void* pPointerShapeBuffer,
                                                 UINT* pPointerShapeBufferSizeRequired,
                                                 DXGI_OUTDUPL_POINTER_SHAPE_INFO* pPointerShapeInfo) override;
  HRESULT STDMETHODCALLTYPE MapDesktopSurface(DXGI_MAPPED_RECT* pLockedRect) override;
  HRESULT STDMETHODCALLTYPE UnMapDesktopSurface() override;
  HRESULT STDMETHODCALLTYPE ReleaseFrame() override;

 private:
  enum class Wait { Frame, Timeout, Lost };

  OutputDuplication(dxgi::Output* output, d3d11::Device* device, std::shared_ptr<OutputDesktop> desktop,
                    std::unique_ptr<XScreenGrabber> grabber, const DesktopState& state);

  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  bool lost();
  // Each waits until `timeoutMs` has passed or there is something to hand out, and fills `info`.
  Wait waitSynthetic(UINT timeoutMs, DXGI_OUTDUPL_FRAME_INFO& info);
  Wait waitX(UINT timeoutMs, DXGI_OUTDUPL_FRAME_INFO& info);
  // Takes a pointer update into `info` if one came; the desktop's mutex is held.
  bool takePointer(DXGI_OUTDUPL_FRAME_INFO& info);

  Pin<dxgi::Output> output;
  Pin<d3d11::Device> device;
  Pin<d3d11::Texture> image;
  std::shared_ptr<OutputDesktop> desktop;
  std::unique_ptr<XScreenGrabber> grabber;
  const uint64_t epoch;
  const uint32_t width, height;
  PrivateData privateData;

  std::mutex callMutex;  // one acquire or release at a time
  bool held = false;
  uint64_t seenImage = 0;  // 0: nothing handed out yet, so the first acquire gives the image at once
  uint64_t seenPointerUpdates = 0;
  uint64_t drawnFrame = 0;  // the animation frame in `image`, so that the next one redraws only changes
};

}  // namespace platform::desktop
