// The immediate context: Map, queries, flushes. Copies are in context_copy.cc, the video
// processor's calls in video_context.cc.
#include "platform/d3d11/context.h"

#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/query.h"
#include "platform/d3d11/texture.h"

namespace platform::d3d11 {
namespace {

constexpr UINT kKnownMapFlags = D3D11_MAP_FLAG_DO_NOT_WAIT;

// Whether a texture created with `desc` may be mapped with `type`.
bool mapAllowed(const D3D11_TEXTURE2D_DESC& desc, D3D11_MAP type) {
  bool read = (desc.CPUAccessFlags & D3D11_CPU_ACCESS_READ) != 0;
  bool write = (desc.CPUAccessFlags & D3D11_CPU_ACCESS_WRITE) != 0;
  switch (type) {
    case D3D11_MAP_READ:
      return read;
    case D3D11_MAP_WRITE:
      return write;
    case D3D11_MAP_READ_WRITE:
      return read && write;
    case D3D11_MAP_WRITE_DISCARD:
    case D3D11_MAP_WRITE_NO_OVERWRITE:
      return write && desc.Usage == D3D11_USAGE_DYNAMIC;
  }
  return false;
}

}  // namespace

Context::Context(Device* device) : DeviceObject("ID3D11DeviceContext", device, false) {}

void* Context::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11DeviceContext ||
      riid == IID_ID3D11DeviceContext1)
    return static_cast<ID3D11DeviceContext1*>(this);
  if (riid == IID_ID3D11VideoContext) return static_cast<ID3D11VideoContext*>(this);
  return nullptr;
}

// The device keeps its context; a context the application holds keeps its device.
void Context::firstReference() { device()->pin(); }
void Context::lastReference() { device()->unpin(); }
bool Context::callableWithoutReferences() const { return !device()->destroyed(); }

Texture* Context::argument(const char* call, ID3D11Resource* resource) {
  Texture* texture = Texture::from(resource);
  if (texture == nullptr) {
    debugLayerViolation(std::string(call) + ": a resource argument is null or not a texture");
    return nullptr;
  }
  if (!texture->usableIn(call)) return nullptr;
  if (texture->device() != device()) {
    debugLayerViolation(std::string(call) + ": the resource was created on another device");
    return nullptr;
  }
  return texture;
}

HRESULT Context::Map(ID3D11Resource* pResource, UINT Subresource, D3D11_MAP MapType, UINT MapFlags,
                     D3D11_MAPPED_SUBRESOURCE* pMappedResource) {
  constexpr const char* call = "ID3D11DeviceContext::Map";
  if (pMappedResource != nullptr) *pMappedResource = {};
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  Texture* texture = argument(call, pResource);
  if (texture == nullptr || pMappedResource == nullptr || (MapFlags & ~kKnownMapFlags) != 0) return E_INVALIDARG;
  if (Subresource != 0) {
    debugLayerViolation("ID3D11DeviceContext::Map: the subresource does not exist");
    return E_INVALIDARG;
  }
  if (!mapAllowed(texture->desc(), MapType)) {
    debugLayerViolation("ID3D11DeviceContext::Map: the resource was not created with the CPU access this map needs");
    return E_INVALIDARG;
  }
  if (texture->mapped.load()) {
    debugLayerViolation("ID3D11DeviceContext::Map: the resource is already mapped");
    return E_INVALIDARG;
  }
  if ((MapFlags & D3D11_MAP_FLAG_DO_NOT_WAIT) != 0 && texture->pendingWrite.exchange(false))
    return DXGI_ERROR_WAS_STILL_DRAWING;
  texture->pendingWrite.store(false);  // Map waits for the GPU
  texture->mapped.store(true);
  const TextureLayout& layout = texture->layout();
  pMappedResource->pData = texture->store().bytes.data();
  pMappedResource->RowPitch = layout.rowPitch;
  pMappedResource->DepthPitch = UINT(layout.size);
  return S_OK;
}

void Context::Unmap(ID3D11Resource* pResource, UINT Subresource) {
  constexpr const char* call = "ID3D11DeviceContext::Unmap";
  if (!enterVoid(call)) return;
  Texture* texture = argument(call, pResource);
  if (texture == nullptr) return;
  if (Subresource != 0 || !texture->mapped.exchange(false))
    debugLayerViolation("ID3D11DeviceContext::Unmap: the subresource is not mapped");
}

void Context::Begin(ID3D11Asynchronous* pAsync) {
  if (!enterVoid("ID3D11DeviceContext::Begin")) return;
  if (Query::from(pAsync) != nullptr)
    debugLayerViolation("ID3D11DeviceContext::Begin: an event query has no Begin, only End");
}

void Context::End(ID3D11Asynchronous* pAsync) {
  if (!enterVoid("ID3D11DeviceContext::End")) return;
  Query* query = Query::from(pAsync);
  if (query == nullptr || !query->usableIn("ID3D11DeviceContext::End")) return;
  if (query->device() != device()) {
    debugLayerViolation("ID3D11DeviceContext::End: the query was created on another device");
    return;
  }
  query->issue(workSinceEnd.exchange(false), flushes.load());
}

HRESULT Context::GetData(ID3D11Asynchronous* pAsync, void* pData, UINT DataSize, UINT GetDataFlags) {
  constexpr const char* call = "ID3D11DeviceContext::GetData";
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  Query* query = Query::from(pAsync);
  if (query == nullptr || !query->usableIn(call)) return E_INVALIDARG;
  if (query->device() != device()) {
    debugLayerViolation("ID3D11DeviceContext::GetData: the query was created on another device");
    return E_INVALIDARG;
  }
  if ((pData != nullptr && DataSize != sizeof(BOOL)) || (pData == nullptr && DataSize != 0)) return E_INVALIDARG;
  if (!query->issued()) {
    debugLayerViolation("ID3D11DeviceContext::GetData: the query was never ended");
    return DXGI_ERROR_INVALID_CALL;
  }
  if ((GetDataFlags & D3D11_ASYNC_GETDATA_DONOTFLUSH) == 0) {
    flushes.fetch_add(1);
    workSinceFlush.store(false);
  }
  HRESULT hr = query->poll(flushes.load());
  if (hr == S_OK && pData != nullptr) *static_cast<BOOL*>(pData) = TRUE;
  return hr;
}

void Context::ClearState() { enterVoid("ID3D11DeviceContext::ClearState"); }

void Context::Flush() {
  if (!enterVoid("ID3D11DeviceContext::Flush")) return;
  flushes.fetch_add(1);
  workSinceFlush.store(false);
}

D3D11_DEVICE_CONTEXT_TYPE Context::GetType() {
  enterVoid("ID3D11DeviceContext::GetType");
  return D3D11_DEVICE_CONTEXT_IMMEDIATE;
}

UINT Context::GetContextFlags() {
  enterVoid("ID3D11DeviceContext::GetContextFlags");
  return 0;
}

void Context::DiscardResource(ID3D11Resource* pResource) {
  constexpr const char* call = "ID3D11DeviceContext1::DiscardResource";
  if (enterVoid(call)) argument(call, pResource);  // the contents become undefined: keeping them is fine
}

void Context::DiscardView(ID3D11View*) { enterVoid("ID3D11DeviceContext1::DiscardView"); }

}  // namespace platform::d3d11
