// Windows.Graphics.Capture at the ABI: capture items, frame pools, frames and sessions.
// A capture item for a window or a monitor comes from IGraphicsCaptureItemInterop
// (windows.graphics.capture.interop.h).
#pragma once

#include <eventtoken.h>
#include <inspectable.h>
#include <windows.foundation.h>

#include "windows.graphics.directx.direct3d11.h"
#include "windows.graphics.directx.h"
#include "windows.graphics.h"

inline constexpr WCHAR RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool[] =
    L"Windows.Graphics.Capture.Direct3D11CaptureFramePool";
inline constexpr WCHAR RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem[] =
    L"Windows.Graphics.Capture.GraphicsCaptureItem";

namespace ABI {
namespace Windows {
namespace System {
struct IDispatcherQueue;
}  // namespace System

namespace Graphics {
namespace Capture {
// Runtime classes: at the ABI each is its default interface.
class Direct3D11CaptureFrame;
class Direct3D11CaptureFramePool;
class GraphicsCaptureItem;
class GraphicsCaptureSession;

struct IDirect3D11CaptureFrame;
struct IDirect3D11CaptureFramePool;
struct IGraphicsCaptureItem;
struct IGraphicsCaptureSession;
}  // namespace Capture
}  // namespace Graphics

// The ids of the two delegates are WinRT parameterised-interface ids: the SHA-1 name-based
// UUID of the instance's signature, e.g. for FrameArrived
// "pinterface({9de1c534-6ae1-11e0-84e1-18a905bcc53f};rc(Windows.Graphics.Capture.
// Direct3D11CaptureFramePool;{24eb6d22-1975-422e-82e7-780dbd8ddf24});cinterface(IInspectable))"
// in the namespace 11f47ad5-7b73-42c0-abae-878b1e16adee.
namespace Foundation {
template <>
MIDL_INTERFACE("51a947f7-79cf-5a3e-a3a5-1289cfa6dfe8")
ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*, IInspectable*>
    : ITypedEventHandler_impl<
          ABI::Windows::Foundation::Internal::AggregateType<
              ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*,
              ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool*>,
          IInspectable*> {};

template <>
MIDL_INTERFACE("e9c610c0-a68c-5bd9-8021-8589346eeee2")
ITypedEventHandler<ABI::Windows::Graphics::Capture::GraphicsCaptureItem*, IInspectable*>
    : ITypedEventHandler_impl<
          ABI::Windows::Foundation::Internal::AggregateType<ABI::Windows::Graphics::Capture::GraphicsCaptureItem*,
                                                            ABI::Windows::Graphics::Capture::IGraphicsCaptureItem*>,
          IInspectable*> {};
}  // namespace Foundation
}  // namespace Windows
}  // namespace ABI

// The SDK's flat names for the two delegates; __CRT_UUID_DECL needs a name without a comma.
#define __FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable \
  ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*, IInspectable*>
#define __FITypedEventHandler_2_Windows__CGraphics__CCapture__CGraphicsCaptureItem_IInspectable \
  ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::GraphicsCaptureItem*, IInspectable*>
__CRT_UUID_DECL(__FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable,
                0x51a947f7, 0x79cf, 0x5a3e, 0xa3, 0xa5, 0x12, 0x89, 0xcf, 0xa6, 0xdf, 0xe8)
__CRT_UUID_DECL(__FITypedEventHandler_2_Windows__CGraphics__CCapture__CGraphicsCaptureItem_IInspectable, 0xe9c610c0,
                0xa68c, 0x5bd9, 0x80, 0x21, 0x85, 0x89, 0x34, 0x6e, 0xee, 0xe2)

namespace ABI {
namespace Windows {
namespace Graphics {
namespace Capture {
MIDL_INTERFACE("fa50c623-38da-4b32-acf3-fa9734ad800e")
IDirect3D11CaptureFrame : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Surface(
      ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface** value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_SystemRelativeTime(ABI::Windows::Foundation::TimeSpan* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ContentSize(ABI::Windows::Graphics::SizeInt32* value) = 0;
};

MIDL_INTERFACE("24eb6d22-1975-422e-82e7-780dbd8ddf24")
IDirect3D11CaptureFramePool : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Recreate(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice* device,
                                             ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat,
                                             INT32 numberOfBuffers, ABI::Windows::Graphics::SizeInt32 size) = 0;
  virtual HRESULT STDMETHODCALLTYPE TryGetNextFrame(IDirect3D11CaptureFrame** result) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_FrameArrived(
      __FITypedEventHandler_2_Windows__CGraphics__CCapture__CDirect3D11CaptureFramePool_IInspectable* handler,
      EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_FrameArrived(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateCaptureSession(IGraphicsCaptureItem* item,
                                                         IGraphicsCaptureSession** result) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_DispatcherQueue(ABI::Windows::System::IDispatcherQueue** value) = 0;
};

MIDL_INTERFACE("7784056a-67aa-4d53-ae54-1088d5a8ca21")
IDirect3D11CaptureFramePoolStatics : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Create(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice* device,
                                           ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat,
                                           INT32 numberOfBuffers, ABI::Windows::Graphics::SizeInt32 size,
                                           IDirect3D11CaptureFramePool** result) = 0;
};

MIDL_INTERFACE("589b103f-6bbc-5df5-a991-02e28b3b66d5")
IDirect3D11CaptureFramePoolStatics2 : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE CreateFreeThreaded(
      ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice* device,
      ABI::Windows::Graphics::DirectX::DirectXPixelFormat pixelFormat, INT32 numberOfBuffers,
      ABI::Windows::Graphics::SizeInt32 size, IDirect3D11CaptureFramePool** result) = 0;
};

MIDL_INTERFACE("79c3f95b-31f7-4ec2-a464-632ef5d30760")
IGraphicsCaptureItem : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_DisplayName(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Size(ABI::Windows::Graphics::SizeInt32* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_Closed(
      __FITypedEventHandler_2_Windows__CGraphics__CCapture__CGraphicsCaptureItem_IInspectable* handler,
      EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_Closed(EventRegistrationToken token) = 0;
};

MIDL_INTERFACE("814e42a9-f70f-4ad7-939b-fddcc6eb880d")
IGraphicsCaptureSession : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE StartCapture() = 0;
};

MIDL_INTERFACE("2c39ae40-7d2e-5044-804e-8b6799d4cf9e")
IGraphicsCaptureSession2 : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_IsCursorCaptureEnabled(boolean* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_IsCursorCaptureEnabled(boolean value) = 0;
};
}  // namespace Capture
}  // namespace Graphics
}  // namespace Windows
}  // namespace ABI

__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFrame, 0xfa50c623, 0x38da, 0x4b32, 0xac, 0xf3, 0xfa,
                0x97, 0x34, 0xad, 0x80, 0x0e)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool, 0x24eb6d22, 0x1975, 0x422e, 0x82, 0xe7,
                0x78, 0x0d, 0xbd, 0x8d, 0xdf, 0x24)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics, 0x7784056a, 0x67aa, 0x4d53, 0xae,
                0x54, 0x10, 0x88, 0xd5, 0xa8, 0xca, 0x21)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics2, 0x589b103f, 0x6bbc, 0x5df5, 0xa9,
                0x91, 0x02, 0xe2, 0x8b, 0x3b, 0x66, 0xd5)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IGraphicsCaptureItem, 0x79c3f95b, 0x31f7, 0x4ec2, 0xa4, 0x64, 0x63,
                0x2e, 0xf5, 0xd3, 0x07, 0x60)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IGraphicsCaptureSession, 0x814e42a9, 0xf70f, 0x4ad7, 0x93, 0x9b, 0xfd,
                0xdc, 0xc6, 0xeb, 0x88, 0x0d)
__CRT_UUID_DECL(ABI::Windows::Graphics::Capture::IGraphicsCaptureSession2, 0x2c39ae40, 0x7d2e, 0x5044, 0x80, 0x4e, 0x8b,
                0x67, 0x99, 0xd4, 0xcf, 0x9e)
