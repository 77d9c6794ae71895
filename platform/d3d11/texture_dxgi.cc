// The DXGI face of a texture: shared handles, the keyed mutex, the surface.
#include <map>
#include <mutex>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/call_records.h"
#include "platform/d3d11/context.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"

namespace platform::d3d11 {
namespace {

// Handles from GetSharedHandle are not NT handles: nobody closes them, and they name a
// resource for as long as it exists.
struct LegacyHandles {
  std::mutex mutex;
  std::map<uintptr_t, std::weak_ptr<PixelStore>> stores;
  uintptr_t next = 0x40000000;
};

LegacyHandles& legacyHandles() {
  static LegacyHandles* instance = new LegacyHandles;
  return *instance;
}

HANDLE legacyHandleFor(const std::shared_ptr<PixelStore>& store) {
  LegacyHandles& table = legacyHandles();
  std::lock_guard<std::mutex> lock(table.mutex);
  for (auto it = table.stores.begin(); it != table.stores.end();) {
    std::shared_ptr<PixelStore> existing = it->second.lock();
    if (existing == nullptr) {
      it = table.stores.erase(it);
      continue;
    }
    if (existing == store) return reinterpret_cast<HANDLE>(it->first);
    ++it;
  }
  table.next += 4;
  table.stores.emplace(table.next, store);
  return reinterpret_cast<HANDLE>(table.next);
}

}  // namespace

std::shared_ptr<PixelStore> storeFromLegacyHandle(HANDLE handle) {
  LegacyHandles& table = legacyHandles();
  std::lock_guard<std::mutex> lock(table.mutex);
  auto found = table.stores.find(reinterpret_cast<uintptr_t>(handle));
  return found == table.stores.end() ? nullptr : found->second.lock();
}

HRESULT Texture::DxgiSide::SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) {
  if (HRESULT hr = texture.enter("IDXGIObject::SetPrivateData"); hr != S_OK) return hr;
  return texture.privateStore().set(Name, DataSize, pData);
}

HRESULT Texture::DxgiSide::SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) {
  if (HRESULT hr = texture.enter("IDXGIObject::SetPrivateDataInterface"); hr != S_OK) return hr;
  return texture.privateStore().setInterface(Name, pUnknown);
}

HRESULT Texture::DxgiSide::GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) {
  if (HRESULT hr = texture.enter("IDXGIObject::GetPrivateData"); hr != S_OK) return hr;
  return texture.privateStore().get(Name, pDataSize, pData);
}

HRESULT Texture::DxgiSide::GetParent(REFIID riid, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = texture.enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  if (ppParent == nullptr) return DXGI_ERROR_INVALID_CALL;
  return texture.device()->answerAs(riid, ppParent);
}

HRESULT Texture::DxgiSide::GetDevice(REFIID riid, void** ppDevice) {
  if (ppDevice != nullptr) *ppDevice = nullptr;
  if (HRESULT hr = texture.enter("IDXGIDeviceSubObject::GetDevice"); hr != S_OK) return hr;
  if (ppDevice == nullptr) return DXGI_ERROR_INVALID_CALL;
  return texture.device()->answerAs(riid, ppDevice);
}

HRESULT Texture::DxgiSide::GetSharedHandle(HANDLE* pSharedHandle) {
  if (pSharedHandle != nullptr) *pSharedHandle = nullptr;
  if (HRESULT hr = texture.enter("IDXGIResource::GetSharedHandle"); hr != S_OK) return hr;
  if (pSharedHandle == nullptr) return E_INVALIDARG;
  UINT misc = texture.desc().MiscFlags;
  bool legacyShared = (misc & (D3D11_RESOURCE_MISC_SHARED | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX)) != 0 &&
                      (misc & D3D11_RESOURCE_MISC_SHARED_NTHANDLE) == 0;
  if (!legacyShared) return DXGI_ERROR_INVALID_CALL;  // NT-handle resources share through CreateSharedHandle
  *pSharedHandle = legacyHandleFor(texture.sharedStore());
  return S_OK;
}

HRESULT Texture::DxgiSide::GetUsage(DXGI_USAGE* pUsage) {
  if (HRESULT hr = texture.enter("IDXGIResource::GetUsage"); hr != S_OK) return hr;
  if (pUsage == nullptr) return E_INVALIDARG;
  const D3D11_TEXTURE2D_DESC& desc = texture.desc();
  DXGI_USAGE usage = 0;
  if (desc.BindFlags & D3D11_BIND_SHADER_RESOURCE) usage |= DXGI_USAGE_SHADER_INPUT;
  if (desc.BindFlags & D3D11_BIND_RENDER_TARGET) usage |= DXGI_USAGE_RENDER_TARGET_OUTPUT;
  if (desc.BindFlags & D3D11_BIND_UNORDERED_ACCESS) usage |= DXGI_USAGE_UNORDERED_ACCESS;
  if (desc.MiscFlags & (D3D11_RESOURCE_MISC_SHARED | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX)) usage |= DXGI_USAGE_SHARED;
  if (desc.Usage == D3D11_USAGE_DYNAMIC) usage |= DXGI_CPU_ACCESS_DYNAMIC;
  if (desc.Usage == D3D11_USAGE_STAGING) usage |= DXGI_CPU_ACCESS_READ_WRITE;
  *pUsage = usage;
  return S_OK;
}

HRESULT Texture::DxgiSide::SetEvictionPriority(UINT EvictionPriority) {
  if (HRESULT hr = texture.enter("IDXGIResource::SetEvictionPriority"); hr != S_OK) return hr;
  texture.evictionPriority.store(EvictionPriority);
  return S_OK;
}

HRESULT Texture::DxgiSide::GetEvictionPriority(UINT* pEvictionPriority) {
  if (HRESULT hr = texture.enter("IDXGIResource::GetEvictionPriority"); hr != S_OK) return hr;
  if (pEvictionPriority == nullptr) return E_INVALIDARG;
  *pEvictionPriority = texture.evictionPriority.load();
  return S_OK;
}

HRESULT Texture::DxgiSide::CreateSubresourceSurface(UINT, IDXGISurface2** ppSurface) {
  if (ppSurface != nullptr) *ppSurface = nullptr;
  if (HRESULT hr = texture.enter("IDXGIResource1::CreateSubresourceSurface"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT Texture::DxgiSide::CreateSharedHandle(const SECURITY_ATTRIBUTES*, DWORD, LPCWSTR lpName, HANDLE* pHandle) {
  if (pHandle != nullptr) *pHandle = nullptr;
  if (HRESULT hr = texture.enter("IDXGIResource1::CreateSharedHandle"); hr != S_OK) return hr;
  if (pHandle == nullptr) return E_INVALIDARG;
  if ((texture.desc().MiscFlags & D3D11_RESOURCE_MISC_SHARED_NTHANDLE) == 0) return E_INVALIDARG;
  if (lpName != nullptr) return E_NOTIMPL;  // resources are shared by handle only on this machine
  *pHandle = createHandle(std::make_shared<SharedTextureObject>(texture.sharedStore()));
  return S_OK;
}

HRESULT Texture::DxgiSide::AcquireSync(UINT64 Key, DWORD dwMilliseconds) {
  if (HRESULT hr = texture.enter("IDXGIKeyedMutex::AcquireSync"); hr != S_OK) return hr;
  recordKeyedMutex({false, Key, false});
  HRESULT hr = texture.store().keyedMutex.acquire(&texture, Key, dwMilliseconds);
  if (hr == E_FAIL) debugLayerViolation("IDXGIKeyedMutex::AcquireSync: the keyed mutex is already held by this device");
  return hr;
}

HRESULT Texture::DxgiSide::ReleaseSync(UINT64 Key) {
  if (HRESULT hr = texture.enter("IDXGIKeyedMutex::ReleaseSync"); hr != S_OK) return hr;
  recordKeyedMutex({true, Key, texture.device()->immediateContext()->flushed()});
  HRESULT hr = texture.store().keyedMutex.release(&texture, Key);
  if (hr == E_FAIL) debugLayerViolation("IDXGIKeyedMutex::ReleaseSync: the keyed mutex is not held by this device");
  return hr;
}

HRESULT Texture::DxgiSide::GetDesc(DXGI_SURFACE_DESC* pDesc) {
  if (HRESULT hr = texture.enter("IDXGISurface::GetDesc"); hr != S_OK) return hr;
  if (pDesc == nullptr) return E_INVALIDARG;
  const D3D11_TEXTURE2D_DESC& desc = texture.desc();
  *pDesc = {desc.Width, desc.Height, desc.Format, desc.SampleDesc};
  return S_OK;
}

// The DXGI surface maps CPU-accessible textures only, as on Windows.
HRESULT Texture::DxgiSide::Map(DXGI_MAPPED_RECT* pLockedRect, UINT MapFlags) {
  if (HRESULT hr = texture.enter("IDXGISurface::Map"); hr != S_OK) return hr;
  if (pLockedRect == nullptr) return E_INVALIDARG;
  UINT access = texture.desc().CPUAccessFlags;
  bool allowed = ((MapFlags & DXGI_MAP_READ) == 0 || (access & D3D11_CPU_ACCESS_READ) != 0) &&
                 ((MapFlags & DXGI_MAP_WRITE) == 0 || (access & D3D11_CPU_ACCESS_WRITE) != 0) && access != 0;
  if (!allowed) {
    debugLayerViolation("IDXGISurface::Map: the surface was not created for this CPU access");
    return DXGI_ERROR_INVALID_CALL;
  }
  if (texture.mapped.exchange(true)) {
    debugLayerViolation("IDXGISurface::Map: the surface is already mapped");
    return DXGI_ERROR_INVALID_CALL;
  }
  pLockedRect->pBits = texture.store().bytes.data();
  pLockedRect->Pitch = INT(texture.layout().rowPitch);
  return S_OK;
}

HRESULT Texture::DxgiSide::Unmap() {
  if (HRESULT hr = texture.enter("IDXGISurface::Unmap"); hr != S_OK) return hr;
  if (!texture.mapped.exchange(false)) return DXGI_ERROR_INVALID_CALL;
  return S_OK;
}

}  // namespace platform::d3d11
