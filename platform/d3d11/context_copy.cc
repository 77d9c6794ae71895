// The context's copies: CopyResource, CopySubresourceRegion, UpdateSubresource. Each runs at once
// (see context.h) and is dropped, as the runtime drops it, when the debug layer objects.
#include <cstring>
#include <mutex>
#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/context.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"

namespace platform::d3d11 {
namespace {

void refuse(const char* call, const char* why) { debugLayerViolation(std::string(call) + ": " + why); }

// Copies the rows of a w x h region (in pixels of the first plane) between two stores of one
// layout family; NV12 regions are even and take their chroma rows along.
void copyRows(PixelStore& dst, UINT dstX, UINT dstY, const PixelStore& src, UINT srcX, UINT srcY, UINT w, UINT h) {
  const TextureLayout& dl = dst.layout;
  const TextureLayout& sl = src.layout;
  for (int plane = 0; plane < dl.planes(); ++plane) {
    size_t dstBase = plane == 0 ? 0 : dl.chromaOffset();
    size_t srcBase = plane == 0 ? 0 : sl.chromaOffset();
    UINT rows = plane == 0 ? h : h / 2;
    UINT dstRow = plane == 0 ? dstY : dstY / 2;
    UINT srcRow = plane == 0 ? srcY : srcY / 2;
    size_t bytes = size_t(w) * dl.bytesPerPixel;  // the chroma plane's pairs take as many bytes
    for (UINT r = 0; r < rows; ++r) {
      uint8_t* to = dst.bytes.data() + dstBase + size_t(dstRow + r) * dl.rowPitch + size_t(dstX) * dl.bytesPerPixel;
      const uint8_t* from =
          src.bytes.data() + srcBase + size_t(srcRow + r) * sl.rowPitch + size_t(srcX) * sl.bytesPerPixel;
      std::memmove(to, from, bytes);
    }
  }
}

bool odd(UINT value) { return (value & 1) != 0; }

}  // namespace

bool Context::copyRegion(const char* call, Texture* dst, UINT dstX, UINT dstY, Texture* src, const D3D11_BOX& box) {
  const D3D11_TEXTURE2D_DESC& d = dst->desc();
  const D3D11_TEXTURE2D_DESC& s = src->desc();
  if (!copyCompatible(d.Format, s.Format)) return refuse(call, "the resources differ in format"), false;
  if (d.Usage == D3D11_USAGE_IMMUTABLE) return refuse(call, "the destination is immutable"), false;
  if (dst->mapped.load() || src->mapped.load()) return refuse(call, "a resource is mapped"), false;
  if (box.right > s.Width || box.bottom > s.Height || box.front != 0 || box.back != 1)
    return refuse(call, "the source box reaches outside the source"), false;
  if (box.left >= box.right || box.top >= box.bottom) return true;  // an empty box copies nothing
  UINT w = box.right - box.left;
  UINT h = box.bottom - box.top;
  // Compared by subtraction: a destination corner near the top of the range must not wrap inside.
  if (dstX > d.Width || w > d.Width - dstX || dstY > d.Height || h > d.Height - dstY)
    return refuse(call, "the region reaches outside the destination"), false;
  if (d.Format == DXGI_FORMAT_NV12 && (odd(box.left) || odd(box.top) || odd(w) || odd(h) || odd(dstX) || odd(dstY)))
    return refuse(call, "an NV12 region must start and end on even coordinates"), false;
  if (!dst->accessible() || !src->accessible())
    return refuse(call, "a keyed-mutex resource is used without holding its keyed mutex"), false;

  PixelStore& to = dst->store();
  PixelStore& from = src->store();
  if (&to == &from) {
    std::lock_guard<std::mutex> lock(to.mutex);
    copyRows(to, dstX, dstY, from, box.left, box.top, w, h);
  } else {
    std::scoped_lock lock(to.mutex, from.mutex);
    copyRows(to, dstX, dstY, from, box.left, box.top, w, h);
  }
  dst->pendingWrite.store(true);
  queued();
  return true;
}

void Context::CopyResource(ID3D11Resource* pDstResource, ID3D11Resource* pSrcResource) {
  constexpr const char* call = "ID3D11DeviceContext::CopyResource";
  if (!enterVoid(call)) return;
  Texture* dst = argument(call, pDstResource);
  Texture* src = argument(call, pSrcResource);
  if (dst == nullptr || src == nullptr) return;
  if (dst == src) return refuse(call, "the source and the destination are one resource");
  if (dst->desc().Width != src->desc().Width || dst->desc().Height != src->desc().Height)
    return refuse(call, "the resources differ in size");
  copyRegion(call, dst, 0, 0, src, {0, 0, 0, src->desc().Width, src->desc().Height, 1});
}

void Context::copySubresourceRegion(const char* call, ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX,
                                    UINT DstY, UINT DstZ, ID3D11Resource* pSrcResource, UINT SrcSubresource,
                                    const D3D11_BOX* pSrcBox) {
  Texture* dst = argument(call, pDstResource);
  Texture* src = argument(call, pSrcResource);
  if (dst == nullptr || src == nullptr) return;
  if (DstSubresource != 0 || SrcSubresource != 0 || DstZ != 0) return refuse(call, "the subresource does not exist");
  D3D11_BOX whole{0, 0, 0, src->desc().Width, src->desc().Height, 1};
  copyRegion(call, dst, DstX, DstY, src, pSrcBox != nullptr ? *pSrcBox : whole);
}

void Context::CopySubresourceRegion(ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX, UINT DstY, UINT DstZ,
                                    ID3D11Resource* pSrcResource, UINT SrcSubresource, const D3D11_BOX* pSrcBox) {
  constexpr const char* call = "ID3D11DeviceContext::CopySubresourceRegion";
  if (!enterVoid(call)) return;
  copySubresourceRegion(call, pDstResource, DstSubresource, DstX, DstY, DstZ, pSrcResource, SrcSubresource, pSrcBox);
}

void Context::CopySubresourceRegion1(ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX, UINT DstY,
                                     UINT DstZ, ID3D11Resource* pSrcResource, UINT SrcSubresource,
                                     const D3D11_BOX* pSrcBox, UINT) {
  constexpr const char* call = "ID3D11DeviceContext1::CopySubresourceRegion1";
  if (!enterVoid(call)) return;
  copySubresourceRegion(call, pDstResource, DstSubresource, DstX, DstY, DstZ, pSrcResource, SrcSubresource, pSrcBox);
}

// Rows of `pSrcData` at SrcRowPitch into the box; for NV12 the chroma rows follow the luma rows
// at SrcRowPitch * (box height).
void Context::update(const char* call, ID3D11Resource* pDstResource, UINT DstSubresource, const D3D11_BOX* pDstBox,
                     const void* pSrcData, UINT SrcRowPitch) {
  Texture* dst = argument(call, pDstResource);
  if (dst == nullptr) return;
  const D3D11_TEXTURE2D_DESC& d = dst->desc();
  if (DstSubresource != 0) return refuse(call, "the subresource does not exist");
  if (d.Usage != D3D11_USAGE_DEFAULT) return refuse(call, "only a default-usage resource takes UpdateSubresource");
  if (pSrcData == nullptr) return refuse(call, "the source data is null");
  D3D11_BOX box = pDstBox != nullptr ? *pDstBox : D3D11_BOX{0, 0, 0, d.Width, d.Height, 1};
  if (box.left >= box.right || box.top >= box.bottom) return;
  if (box.right > d.Width || box.bottom > d.Height) return refuse(call, "the box reaches outside the resource");
  UINT w = box.right - box.left;
  UINT h = box.bottom - box.top;
  const TextureLayout& layout = dst->layout();
  if (layout.nv12 && (odd(box.left) || odd(box.top) || odd(w) || odd(h)))
    return refuse(call, "an NV12 region must start and end on even coordinates");
  if (SrcRowPitch < w * layout.bytesPerPixel) return refuse(call, "the source row pitch is narrower than a row");
  if (!dst->accessible()) return refuse(call, "a keyed-mutex resource is used without holding its keyed mutex");

  PixelStore& store = dst->store();
  std::lock_guard<std::mutex> lock(store.mutex);
  const uint8_t* source = static_cast<const uint8_t*>(pSrcData);
  for (int plane = 0; plane < layout.planes(); ++plane) {
    size_t base = plane == 0 ? 0 : layout.chromaOffset();
    UINT rows = plane == 0 ? h : h / 2;
    UINT top = plane == 0 ? box.top : box.top / 2;
    for (UINT r = 0; r < rows; ++r, source += SrcRowPitch)
      std::memcpy(store.bytes.data() + base + size_t(top + r) * layout.rowPitch + size_t(box.left) * layout.bytesPerPixel,
                  source, size_t(w) * layout.bytesPerPixel);
  }
  dst->pendingWrite.store(true);
  queued();
}

void Context::UpdateSubresource(ID3D11Resource* pDstResource, UINT DstSubresource, const D3D11_BOX* pDstBox,
                                const void* pSrcData, UINT SrcRowPitch, UINT) {
  constexpr const char* call = "ID3D11DeviceContext::UpdateSubresource";
  if (enterVoid(call)) update(call, pDstResource, DstSubresource, pDstBox, pSrcData, SrcRowPitch);
}

void Context::UpdateSubresource1(ID3D11Resource* pDstResource, UINT DstSubresource, const D3D11_BOX* pDstBox,
                                 const void* pSrcData, UINT SrcRowPitch, UINT, UINT) {
  constexpr const char* call = "ID3D11DeviceContext1::UpdateSubresource1";
  if (enterVoid(call)) update(call, pDstResource, DstSubresource, pDstBox, pSrcData, SrcRowPitch);
}

}  // namespace platform::d3d11
