// Between DXGI and the WinRT Direct3D types: wrap a DXGI device as an IDirect3DDevice, and
// reach the DXGI object behind an IDirect3DDevice or an IDirect3DSurface.
#pragma once

#include <dxgi.h>
#include <inspectable.h>
#include <unknwn.h>
#include <windows.h>

extern "C" {
HRESULT WINAPI CreateDirect3D11DeviceFromDXGIDevice(IDXGIDevice* dxgiDevice, IInspectable** graphicsDevice);
}

// Not an SDK name: the type of CreateDirect3D11DeviceFromDXGIDevice for GetProcAddress on
// d3d11.dll, since Wine 8 does not export it and a static import would keep the module from
// loading there.
typedef HRESULT(WINAPI* PFN_CreateDirect3D11DeviceFromDXGIDevice)(IDXGIDevice* dxgiDevice,
                                                                  IInspectable** graphicsDevice);

namespace Windows {
namespace Graphics {
namespace DirectX {
namespace Direct3D11 {
MIDL_INTERFACE("a9b3d012-3df2-4ee3-b8d1-8695f457d3c1")
IDirect3DDxgiInterfaceAccess : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetInterface(REFIID iid, void** p) = 0;
};
}  // namespace Direct3D11
}  // namespace DirectX
}  // namespace Graphics
}  // namespace Windows
__CRT_UUID_DECL(::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess, 0xa9b3d012, 0x3df2, 0x4ee3, 0xb8,
                0xd1, 0x86, 0x95, 0xf4, 0x57, 0xd3, 0xc1)
