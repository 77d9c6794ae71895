// A 2D texture: a device's object over a pixel store, with its DXGI face (shared handles, the
// keyed mutex, the surface) as a part of the same object.
#pragma once

#include <atomic>
#include <memory>

#include "d3d11_1.h"
#include "dxgi1_2.h"
#include "platform/d3d11/device_object.h"
#include "platform/d3d11/pixel_store.h"

namespace platform::d3d11 {

class Texture final : public ID3D11Texture2D, public DeviceObject {
 public:
  Texture(Device* device, std::shared_ptr<PixelStore> store);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  void STDMETHODCALLTYPE GetType(D3D11_RESOURCE_DIMENSION* pResourceDimension) override;
  void STDMETHODCALLTYPE SetEvictionPriority(UINT EvictionPriority) override;
  UINT STDMETHODCALLTYPE GetEvictionPriority() override;
  void STDMETHODCALLTYPE GetDesc(D3D11_TEXTURE2D_DESC* pDesc) override;

  // The texture behind an application's resource pointer; null for anything else.
  static Texture* from(ID3D11Resource* resource);

  PixelStore& store() const { return *pixels; }
  const std::shared_ptr<PixelStore>& sharedStore() const { return pixels; }
  const D3D11_TEXTURE2D_DESC& desc() const { return pixels->desc; }
  const TextureLayout& layout() const { return pixels->layout; }
  bool hasKeyedMutex() const { return (desc().MiscFlags & D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX) != 0; }
  // False when the texture has a keyed mutex that this texture object does not hold: the GPU
  // then must not touch it.
  bool accessible() const { return !hasKeyedMutex() || pixels->keyedMutex.heldBy(this); }

  // Map state, kept by the immediate context.
  std::atomic<bool> mapped{false};
  // A copy wrote it and nobody has waited for the GPU since (Map with DO_NOT_WAIT sees this).
  std::atomic<bool> pendingWrite{false};

 private:
  class DxgiSide final : public IDXGIResource1, public IDXGIKeyedMutex, public IDXGISurface {
   public:
    explicit DxgiSide(Texture& texture) : texture(texture) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
      return texture.queryInterface(riid, ppvObject);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return texture.externalAddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return texture.externalRelease(); }

    HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) override;
    HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) override;
    HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) override;
    HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;
    HRESULT STDMETHODCALLTYPE GetDevice(REFIID riid, void** ppDevice) override;

    HRESULT STDMETHODCALLTYPE GetSharedHandle(HANDLE* pSharedHandle) override;
    HRESULT STDMETHODCALLTYPE GetUsage(DXGI_USAGE* pUsage) override;
    HRESULT STDMETHODCALLTYPE SetEvictionPriority(UINT EvictionPriority) override;
    HRESULT STDMETHODCALLTYPE GetEvictionPriority(UINT* pEvictionPriority) override;
    HRESULT STDMETHODCALLTYPE CreateSubresourceSurface(UINT index, IDXGISurface2** ppSurface) override;
    HRESULT STDMETHODCALLTYPE CreateSharedHandle(const SECURITY_ATTRIBUTES* pAttributes, DWORD dwAccess,
                                                 LPCWSTR lpName, HANDLE* pHandle) override;

    HRESULT STDMETHODCALLTYPE AcquireSync(UINT64 Key, DWORD dwMilliseconds) override;
    HRESULT STDMETHODCALLTYPE ReleaseSync(UINT64 Key) override;

    HRESULT STDMETHODCALLTYPE GetDesc(DXGI_SURFACE_DESC* pDesc) override;
    HRESULT STDMETHODCALLTYPE Map(DXGI_MAPPED_RECT* pLockedRect, UINT MapFlags) override;
    HRESULT STDMETHODCALLTYPE Unmap() override;

   private:
    Texture& texture;
  };

  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  std::shared_ptr<PixelStore> pixels;
  std::atomic<UINT> evictionPriority{DXGI_RESOURCE_PRIORITY_NORMAL};
  DxgiSide dxgi{*this};
};

// The store behind a handle from GetSharedHandle (not an NT handle), or null.
std::shared_ptr<PixelStore> storeFromLegacyHandle(HANDLE handle);

}  // namespace platform::d3d11
