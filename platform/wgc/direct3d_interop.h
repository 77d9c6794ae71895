// The Windows Runtime faces of Direct3D: a device wrapped by CreateDirect3D11DeviceFromDXGIDevice
// and the surface of a capture frame. Both reach their DXGI object only through
// IDirect3DDxgiInterfaceAccess, as on Windows, where a QueryInterface for a Direct3D interface
// fails on them.
#pragma once

#include <mutex>

#include "objidl.h"
#include "platform/core/com_object.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"
#include "platform/wgc/runtime_object.h"
#include "windows.foundation.h"
#include "windows.graphics.directx.direct3d11.h"
#include "windows.graphics.directx.direct3d11.interop.h"

namespace platform::wgc {

using ABI::Windows::Foundation::IClosable;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface;
using ::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess;

class Direct3DDevice final : public IDirect3DDevice,
                             public IDirect3DDxgiInterfaceAccess,
                             public IClosable,
                             public IAgileObject,
                             public ComObject {
 public:
  // Holds a reference to `device`, as the real wrapper does.
  explicit Direct3DDevice(d3d11::Device* device);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.DirectX.Direct3D11.Direct3DDevice")
  HRESULT STDMETHODCALLTYPE Trim() override;
  HRESULT STDMETHODCALLTYPE GetInterface(REFIID iid, void** p) override;
  HRESULT STDMETHODCALLTYPE Close() override;

  // The device behind an application's pointer, with a pin the caller owns; null for another
  // object or a closed wrapper.
  static Pin<d3d11::Device> deviceOf(IDirect3DDevice* wrapper);

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  std::mutex mutex;
  d3d11::Device* device;  // a reference; null once closed
};

class Direct3DSurface final : public IDirect3DSurface,
                              public IDirect3DDxgiInterfaceAccess,
                              public IClosable,
                              public IAgileObject,
                              public ComObject {
 public:
  explicit Direct3DSurface(d3d11::Texture* texture);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_IINSPECTABLE_METHODS(L"Windows.Graphics.DirectX.Direct3D11.Direct3DSurface")
  HRESULT STDMETHODCALLTYPE
  get_Description(ABI::Windows::Graphics::DirectX::Direct3D11::Direct3DSurfaceDescription* value) override;
  HRESULT STDMETHODCALLTYPE GetInterface(REFIID iid, void** p) override;
  HRESULT STDMETHODCALLTYPE Close() override;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  std::mutex mutex;
  Pin<d3d11::Texture> texture;  // empty once closed
};

}  // namespace platform::wgc
