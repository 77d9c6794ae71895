// Windows.Graphics.DirectX.Direct3D11 at the ABI: the WinRT faces of a Direct3D device and
// of a surface. Their DXGI objects are reached through IDirect3DDxgiInterfaceAccess
// (windows.graphics.directx.direct3d11.interop.h).
#pragma once

#include <inspectable.h>
#include <windows.foundation.h>

#include "windows.graphics.directx.h"

namespace ABI {
namespace Windows {
namespace Graphics {
namespace DirectX {
namespace Direct3D11 {
struct Direct3DMultisampleDescription {
  INT32 Count;
  INT32 Quality;
};

struct Direct3DSurfaceDescription {
  INT32 Width;
  INT32 Height;
  ABI::Windows::Graphics::DirectX::DirectXPixelFormat Format;
  Direct3DMultisampleDescription MultisampleDescription;
};

MIDL_INTERFACE("a37624ab-8d5f-4650-9d3e-9eae3d9bc670")
IDirect3DDevice : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Trim() = 0;
};

MIDL_INTERFACE("0bf4a146-13c1-4694-bee3-7abf15eaf586")
IDirect3DSurface : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Description(Direct3DSurfaceDescription* value) = 0;
};
}  // namespace Direct3D11
}  // namespace DirectX
}  // namespace Graphics
}  // namespace Windows
}  // namespace ABI
__CRT_UUID_DECL(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice, 0xa37624ab, 0x8d5f, 0x4650, 0x9d, 0x3e,
                0x9e, 0xae, 0x3d, 0x9b, 0xc6, 0x70)
__CRT_UUID_DECL(ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface, 0x0bf4a146, 0x13c1, 0x4694, 0xbe, 0xe3,
                0x7a, 0xbf, 0x15, 0xea, 0xf5, 0x86)
