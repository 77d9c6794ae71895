// Media buffers over a texture of the software GPU. The buffer holds the texture; Lock copies
// the subresource into system memory as one contiguous picture (rows without padding, NV12's
// chroma rows after its luma rows) and the last Unlock copies it back, as Windows does.
#include <cstring>
#include <mutex>
#include <vector>

#include "d3d11.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/core/call_gate.h"
#include "platform/core/com_object.h"
#include "platform/d3d11/texture.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

using d3d11::Texture;
using d3d11::TextureLayout;

// Bytes of one row of `plane` without padding: NV12's chroma rows hold width bytes of CbCr pairs.
uint32_t rowBytes(const TextureLayout& layout, int plane) {
  return plane == 0 ? layout.width * layout.bytesPerPixel : layout.width;
}

DWORD contiguousLength(const TextureLayout& layout) {
  size_t total = 0;
  for (int plane = 0; plane < layout.planes(); ++plane) total += size_t(rowBytes(layout, plane)) * layout.planeRows(plane);
  return DWORD(total);
}

// Visits each row of the texture with its offset in the texture and in the contiguous picture.
template <class Visit>
void forEachRow(const TextureLayout& layout, Visit visit) {
  size_t packed = 0;
  for (int plane = 0; plane < layout.planes(); ++plane) {
    size_t planeStart = plane == 0 ? 0 : layout.chromaOffset();
    uint32_t bytes = rowBytes(layout, plane);
    for (uint32_t row = 0; row < layout.planeRows(plane); ++row) {
      visit(planeStart + size_t(row) * layout.rowPitch, packed, bytes);
      packed += bytes;
    }
  }
}

class DxgiSurfaceBuffer final : public ComObject, public IMFMediaBuffer, public IMFDXGIBuffer {
 public:
  // Takes over the caller's reference to `texture`.
  DxgiSurfaceBuffer(ID3D11Texture2D* texture, UINT subresource)
      : ComObject("IMFDXGIBuffer"), texture(texture), subresource(subresource),
        maxLength(contiguousLength(Texture::from(texture)->layout())) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
    return queryInterface(riid, ppvObject);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return externalAddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return externalRelease(); }

  HRESULT STDMETHODCALLTYPE Lock(BYTE** ppbBuffer, DWORD* pcbMaxLength, DWORD* pcbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::Lock"); hr != S_OK) return hr;
    if (ppbBuffer == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    if (locks == 0) {
      shadow.resize(maxLength);
      d3d11::PixelStore& store = Texture::from(texture)->store();
      std::lock_guard<std::mutex> pixels(store.mutex);
      forEachRow(store.layout, [&](size_t at, size_t packed, uint32_t bytes) {
        std::memcpy(shadow.data() + packed, store.bytes.data() + at, bytes);
      });
    }
    ++locks;
    *ppbBuffer = shadow.data();
    if (pcbMaxLength != nullptr) *pcbMaxLength = maxLength;
    if (pcbCurrentLength != nullptr) *pcbCurrentLength = currentLength;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Unlock() override {
    if (HRESULT hr = enter("IMFMediaBuffer::Unlock"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    if (locks == 0) return MF_E_INVALIDREQUEST;
    if (--locks > 0) return S_OK;
    d3d11::PixelStore& store = Texture::from(texture)->store();
    std::lock_guard<std::mutex> pixels(store.mutex);
    forEachRow(store.layout, [&](size_t at, size_t packed, uint32_t bytes) {
      std::memcpy(store.bytes.data() + at, shadow.data() + packed, bytes);
    });
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetCurrentLength(DWORD* pcbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::GetCurrentLength"); hr != S_OK) return hr;
    if (pcbCurrentLength == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    *pcbCurrentLength = currentLength;
    return S_OK;
  }

  // The valid length starts at 0: the creator sets it when it wants one.
  HRESULT STDMETHODCALLTYPE SetCurrentLength(DWORD cbCurrentLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::SetCurrentLength"); hr != S_OK) return hr;
    if (cbCurrentLength > maxLength) return E_INVALIDARG;
    std::lock_guard<std::mutex> lock(mutex);
    currentLength = cbCurrentLength;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* pcbMaxLength) override {
    if (HRESULT hr = enter("IMFMediaBuffer::GetMaxLength"); hr != S_OK) return hr;
    if (pcbMaxLength == nullptr) return E_POINTER;
    *pcbMaxLength = maxLength;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetResource(REFIID riid, LPVOID* ppvObject) override {
    if (HRESULT hr = enter("IMFDXGIBuffer::GetResource"); hr != S_OK) return hr;
    if (ppvObject == nullptr) return E_POINTER;
    return texture->QueryInterface(riid, ppvObject);
  }

  HRESULT STDMETHODCALLTYPE GetSubresourceIndex(UINT* puSubresource) override {
    if (HRESULT hr = enter("IMFDXGIBuffer::GetSubresourceIndex"); hr != S_OK) return hr;
    if (puSubresource == nullptr) return E_POINTER;
    *puSubresource = subresource;
    return S_OK;
  }

  // Objects kept with the resource, in the texture's private data.
  HRESULT STDMETHODCALLTYPE GetUnknown(REFIID guid, REFIID riid, LPVOID* ppvObject) override {
    if (HRESULT hr = enter("IMFDXGIBuffer::GetUnknown"); hr != S_OK) return hr;
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    IUnknown* stored = nullptr;
    UINT size = sizeof(stored);
    if (FAILED(texture->GetPrivateData(guid, &size, &stored)) || size != sizeof(stored) || stored == nullptr)
      return MF_E_NOT_FOUND;
    HRESULT hr = stored->QueryInterface(riid, ppvObject);
    stored->Release();
    return hr;
  }

  HRESULT STDMETHODCALLTYPE SetUnknown(REFIID guid, IUnknown* pUnkData) override {
    if (HRESULT hr = enter("IMFDXGIBuffer::SetUnknown"); hr != S_OK) return hr;
    return texture->SetPrivateDataInterface(guid, pUnkData);
  }

  ID3D11Texture2D* surface() const { return texture; }

 private:
  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFMediaBuffer) return static_cast<IMFMediaBuffer*>(this);
    if (riid == IID_IMFDXGIBuffer) return static_cast<IMFDXGIBuffer*>(this);
    return nullptr;
  }
  void releaseResources() override {
    std::vector<BYTE>().swap(shadow);
    texture->Release();
  }

  ID3D11Texture2D* texture;  // one reference
  const UINT subresource;
  const DWORD maxLength;
  std::mutex mutex;
  std::vector<BYTE> shadow;  // the picture while locked
  DWORD currentLength = 0;
  int locks = 0;
};

}  // namespace

IUnknown* surfaceOf(IMFMediaBuffer* buffer) {
  auto* own = dynamic_cast<DxgiSurfaceBuffer*>(buffer);
  return own == nullptr ? nullptr : own->surface();
}

}  // namespace platform::mf

HRESULT WINAPI MFCreateDXGISurfaceBuffer(REFIID riid, IUnknown* punkSurface, UINT uSubresourceIndex,
                                         BOOL fBottomUpWhenLinear, IMFMediaBuffer** ppBuffer) {
  // fBottomUpWhenLinear steers only IMF2DBuffer::ContiguousCopyTo, which these buffers don't offer.
  (void)fBottomUpWhenLinear;
  HRESULT planned = platform::plannedHresult("MFCreateDXGISurfaceBuffer");
  if (ppBuffer != nullptr) *ppBuffer = nullptr;
  if (planned != S_OK) return planned;
  if (ppBuffer == nullptr || punkSurface == nullptr) return E_POINTER;
  if (riid != IID_ID3D11Texture2D) return E_INVALIDARG;
  ID3D11Texture2D* texture = nullptr;
  if (HRESULT hr = punkSurface->QueryInterface(IID_ID3D11Texture2D, reinterpret_cast<void**>(&texture)); FAILED(hr))
    return hr;
  platform::d3d11::Texture* own = platform::d3d11::Texture::from(texture);
  // Textures here have one mip level and one array slice: subresource 0 alone.
  if (own == nullptr || uSubresourceIndex != 0) {
    texture->Release();
    return E_INVALIDARG;
  }
  platform::handOut(new platform::mf::DxgiSurfaceBuffer(texture, uSubresourceIndex), ppBuffer);
  return S_OK;
}
