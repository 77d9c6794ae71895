// Windows.Graphics.Capture is part of every machine: its two activatable classes, and
// CreateDirect3D11DeviceFromDXGIDevice among d3d11.dll's exports, where GetProcAddress finds it.
#include "platform/com/activation.h"
#include "platform/core/modules.h"
#include "platform/wgc/capture_item.h"
#include "platform/wgc/frame_pool.h"

namespace platform::wgc {
namespace {

template <class Factory>
HRESULT makeFactory(IInspectable** factory) {
  return answerNew(new Factory(), IID_IInspectable, reinterpret_cast<void**>(factory));
}

struct Registration {
  Registration() {
    registerActivationFactory(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem,
                              makeFactory<CaptureItemFactory>);
    registerActivationFactory(RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool,
                              makeFactory<FramePoolStatics>);
    installModule(L"d3d11.dll",
                  {{"CreateDirect3D11DeviceFromDXGIDevice",
                    reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&CreateDirect3D11DeviceFromDXGIDevice))}});
  }
};

const Registration registration;

}  // namespace
}  // namespace platform::wgc
