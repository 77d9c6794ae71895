// Compiled by the Windows build only: the project's sdk/ headers must sit on mingw-w64's
// own without a clash or a warning. Every interface's id is taken so that each
// __CRT_UUID_DECL is instantiated; the NVENC layout is asserted here for mingw-w64 as the
// Linux tests assert it for gcc.
#include <windows.h>
#include <d3d11.h>
#include <inspectable.h>
#include <objbase.h>
#include <roapi.h>
#include <windows.foundation.h>

#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"
#include "windows.graphics.directx.direct3d11.h"
#include "windows.graphics.directx.direct3d11.interop.h"
#include "windows.graphics.directx.h"
#include "windows.graphics.h"
#include "nvEncodeAPI.h"
#include "test/support/nvenc_layout.h"

namespace {
using namespace ABI::Windows::Graphics::Capture;
using namespace ABI::Windows::Graphics::DirectX::Direct3D11;

unsigned long sumOfIds() {
  return __uuidof(IGraphicsCaptureItemInterop).Data1 + __uuidof(IGraphicsCaptureItem).Data1 +
         __uuidof(IGraphicsCaptureSession).Data1 + __uuidof(IGraphicsCaptureSession2).Data1 +
         __uuidof(IDirect3D11CaptureFramePool).Data1 + __uuidof(IDirect3D11CaptureFramePoolStatics).Data1 +
         __uuidof(IDirect3D11CaptureFramePoolStatics2).Data1 + __uuidof(IDirect3D11CaptureFrame).Data1 +
         __uuidof(__FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable).Data1 +
         __uuidof(__FITypedEventHandler_2_Windows__CGraphics__CCapture__CGraphicsCaptureItem_IInspectable).Data1 +
         __uuidof(IDirect3DDevice).Data1 + __uuidof(IDirect3DSurface).Data1 +
         __uuidof(::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess).Data1 +
         __uuidof(ABI::Windows::Foundation::IClosable).Data1 + __uuidof(IAgileObject).Data1 +
         __uuidof(IInspectable).Data1;
}
}  // namespace

unsigned long sdkHeadersCheck() {
  PFN_CreateDirect3D11DeviceFromDXGIDevice create = nullptr;
  ABI::Windows::Graphics::SizeInt32 size = {1280, 720};
  ABI::Windows::Foundation::TimeSpan time = {0};
  EventRegistrationToken token = {0};
  NV_ENCODE_API_FUNCTION_LIST nvenc = {};
  nvenc.version = NV_ENCODE_API_FUNCTION_LIST_VER;
  return sumOfIds() + (create == nullptr) + size.Width + time.Duration + token.value + nvenc.version +
         (nvenc.nvEncOpenEncodeSessionEx == nullptr) + NV_ENC_CODEC_H264_GUID.Data1 +
         ABI::Windows::Graphics::DirectX::DirectXPixelFormat_B8G8R8A8UIntNormalized +
         RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool[0] +
         RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem[0];
}
