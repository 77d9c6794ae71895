#include "platform/wgc/direct3d_interop.h"

#include "platform/core/call_gate.h"
#include "windows.graphics.directx.h"

namespace platform::wgc {

Direct3DDevice::Direct3DDevice(d3d11::Device* device) : ComObject("IDirect3DDevice"), device(device) {
  device->addRef();
}

void* Direct3DDevice::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IDirect3DDevice))
    return static_cast<IDirect3DDevice*>(this);
  if (riid == __uuidof(IDirect3DDxgiInterfaceAccess)) return static_cast<IDirect3DDxgiInterfaceAccess*>(this);
  if (riid == __uuidof(IClosable)) return static_cast<IClosable*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

void Direct3DDevice::releaseResources() {
  d3d11::Device* held = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex);
    held = std::exchange(device, nullptr);
  }
  if (held != nullptr) held->release();
}

HRESULT Direct3DDevice::Trim() {
  if (HRESULT hr = enter("IDirect3DDevice::Trim"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  return device == nullptr ? RO_E_CLOSED : S_OK;
}

HRESULT Direct3DDevice::GetInterface(REFIID iid, void** p) {
  if (p == nullptr) return E_POINTER;
  *p = nullptr;
  if (HRESULT hr = enter("IDirect3DDxgiInterfaceAccess::GetInterface"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (device == nullptr) return RO_E_CLOSED;
  return device->answerAs(iid, p);
}

HRESULT Direct3DDevice::Close() {
  if (HRESULT hr = enter("IClosable::Close"); hr != S_OK) return hr;
  releaseResources();
  return S_OK;
}

Pin<d3d11::Device> Direct3DDevice::deviceOf(IDirect3DDevice* wrapper) {
  auto* own = dynamic_cast<Direct3DDevice*>(wrapper);
  if (own == nullptr || own->destroyed()) return Pin<d3d11::Device>();
  std::lock_guard<std::mutex> lock(own->mutex);
  return Pin<d3d11::Device>(own->device);
}

Direct3DSurface::Direct3DSurface(d3d11::Texture* texture) : ComObject("IDirect3DSurface"), texture(texture) {}

void* Direct3DSurface::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IInspectable || riid == __uuidof(IDirect3DSurface))
    return static_cast<IDirect3DSurface*>(this);
  if (riid == __uuidof(IDirect3DDxgiInterfaceAccess)) return static_cast<IDirect3DDxgiInterfaceAccess*>(this);
  if (riid == __uuidof(IClosable)) return static_cast<IClosable*>(this);
  if (riid == IID_IAgileObject) return static_cast<IAgileObject*>(this);
  return nullptr;
}

void Direct3DSurface::releaseResources() {
  Pin<d3d11::Texture> held;
  {
    std::lock_guard<std::mutex> lock(mutex);
    held = std::move(texture);
  }
}

HRESULT Direct3DSurface::get_Description(
    ABI::Windows::Graphics::DirectX::Direct3D11::Direct3DSurfaceDescription* value) {
  if (value == nullptr) return E_POINTER;
  if (HRESULT hr = enter("IDirect3DSurface::get_Description"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (!texture) return RO_E_CLOSED;
  const D3D11_TEXTURE2D_DESC& desc = texture->desc();
  *value = {INT32(desc.Width),
            INT32(desc.Height),
            ABI::Windows::Graphics::DirectX::DirectXPixelFormat(desc.Format),
            {INT32(desc.SampleDesc.Count), INT32(desc.SampleDesc.Quality)}};
  return S_OK;
}

HRESULT Direct3DSurface::GetInterface(REFIID iid, void** p) {
  if (p == nullptr) return E_POINTER;
  *p = nullptr;
  if (HRESULT hr = enter("IDirect3DDxgiInterfaceAccess::GetInterface"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> lock(mutex);
  if (!texture) return RO_E_CLOSED;
  return texture->answerAs(iid, p);
}

HRESULT Direct3DSurface::Close() {
  if (HRESULT hr = enter("IClosable::Close"); hr != S_OK) return hr;
  releaseResources();
  return S_OK;
}

}  // namespace platform::wgc

HRESULT WINAPI CreateDirect3D11DeviceFromDXGIDevice(IDXGIDevice* dxgiDevice, IInspectable** graphicsDevice) {
  HRESULT planned = platform::plannedHresult("CreateDirect3D11DeviceFromDXGIDevice");
  if (graphicsDevice != nullptr) *graphicsDevice = nullptr;
  if (planned != S_OK) return planned;
  if (dxgiDevice == nullptr || graphicsDevice == nullptr) return E_INVALIDARG;
  platform::d3d11::Device* device = platform::d3d11::Device::from(dxgiDevice);
  if (device == nullptr || device->destroyed()) return E_INVALIDARG;
  return platform::answerNew(new platform::wgc::Direct3DDevice(device), IID_IInspectable,
                             reinterpret_cast<void**>(graphicsDevice));
}
