#include "platform/d3d11/texture.h"

#include "platform/d3d11/device.h"

namespace platform::d3d11 {

Texture::Texture(Device* device, std::shared_ptr<PixelStore> store)
    : DeviceObject("ID3D11Texture2D", device), pixels(std::move(store)) {}

Texture* Texture::from(ID3D11Resource* resource) {
  return resource == nullptr ? nullptr : dynamic_cast<Texture*>(resource);
}

void* Texture::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11Resource ||
      riid == IID_ID3D11Texture2D)
    return static_cast<ID3D11Texture2D*>(this);
  if (riid == IID_IDXGIObject || riid == IID_IDXGIDeviceSubObject || riid == IID_IDXGIResource ||
      riid == IID_IDXGIResource1)
    return static_cast<IDXGIResource1*>(&dxgi);
  if (riid == IID_IDXGISurface) return static_cast<IDXGISurface*>(&dxgi);
  if (riid == IID_IDXGIKeyedMutex && hasKeyedMutex()) return static_cast<IDXGIKeyedMutex*>(&dxgi);
  return nullptr;
}

void Texture::releaseResources() {
  // A texture object that goes while holding the keyed mutex abandons it, as a device does.
  if (hasKeyedMutex()) pixels->keyedMutex.abandon(this);
  pixels.reset();
  releaseDeviceObject();
}

void Texture::GetType(D3D11_RESOURCE_DIMENSION* pResourceDimension) {
  if (!enterVoid("ID3D11Resource::GetType") || pResourceDimension == nullptr) return;
  *pResourceDimension = D3D11_RESOURCE_DIMENSION_TEXTURE2D;
}

void Texture::SetEvictionPriority(UINT EvictionPriority) {
  if (!enterVoid("ID3D11Resource::SetEvictionPriority")) return;
  evictionPriority.store(EvictionPriority);
}

UINT Texture::GetEvictionPriority() {
  if (!enterVoid("ID3D11Resource::GetEvictionPriority")) return 0;
  return evictionPriority.load();
}

void Texture::GetDesc(D3D11_TEXTURE2D_DESC* pDesc) {
  if (!enterVoid("ID3D11Texture2D::GetDesc") || pDesc == nullptr) return;
  *pDesc = desc();
}

}  // namespace platform::d3d11
