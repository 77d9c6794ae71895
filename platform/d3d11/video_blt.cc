// VideoProcessorBlt: the stream's source rectangle, scaled onto its destination rectangle in
// the output, converted from BGRA to NV12 by the platform's kernel.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/context.h"
#include "platform/d3d11/texture.h"
#include "platform/d3d11/video_color.h"
#include "platform/d3d11/video_objects.h"

namespace platform::d3d11 {
namespace {

constexpr const char* kBlt = "ID3D11VideoContext::VideoProcessorBlt";

RECT clipped(const RECT& rect, LONG width, LONG height) {
  return {std::clamp(rect.left, 0, width), std::clamp(rect.top, 0, height), std::clamp(rect.right, 0, width),
          std::clamp(rect.bottom, 0, height)};
}

bool empty(const RECT& r) { return r.right <= r.left || r.bottom <= r.top; }

// NV12 is written in 2x2 blocks: the edges go outwards to even coordinates.
RECT even(const RECT& r) { return {r.left & ~1, r.top & ~1, (r.right + 1) & ~1, (r.bottom + 1) & ~1}; }

RECT intersection(const RECT& a, const RECT& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

video::Nv12Image nv12Region(PixelStore& store, const RECT& r) {
  const TextureLayout& layout = store.layout;
  uint8_t* base = store.bytes.data();
  return {base + size_t(r.top) * layout.rowPitch + size_t(r.left),
          layout.rowPitch,
          base + layout.chromaOffset() + size_t(r.top / 2) * layout.rowPitch + size_t(r.left),
          layout.rowPitch,
          int(r.right - r.left),
          int(r.bottom - r.top)};
}

void fill(const video::Nv12Image& region, uint8_t y, uint8_t cb, uint8_t cr) {
  for (int row = 0; row < region.height; ++row) std::memset(region.luma + row * region.lumaPitch, y, region.width);
  for (int row = 0; row < region.height / 2; ++row) {
    uint8_t* chroma = region.chroma + row * region.chromaPitch;
    for (int x = 0; x < region.width; x += 2) {
      chroma[x] = cb;
      chroma[x + 1] = cr;
    }
  }
}

bool refuse(const char* why) {
  debugLayerViolation(std::string(kBlt) + ": " + why);
  return false;
}

// The input view of stream 0 when the stream is one this processor can take.
VideoProcessorInputView* inputOf(const D3D11_VIDEO_PROCESSOR_STREAM& stream, Device* device) {
  if (stream.PastFrames != 0 || stream.FutureFrames != 0) return refuse("the processor keeps no past or future frames"), nullptr;
  auto* view = VideoProcessorInputView::from(stream.pInputSurface);
  if (view == nullptr) return refuse("the stream has no input surface"), nullptr;
  if (!view->usableIn(kBlt)) return nullptr;
  if (view->device() != device) return refuse("the input view was created on another device"), nullptr;
  return view;
}

}  // namespace

HRESULT Context::VideoProcessorBlt(ID3D11VideoProcessor* pVideoProcessor, ID3D11VideoProcessorOutputView* pView,
                                   UINT, UINT StreamCount, const D3D11_VIDEO_PROCESSOR_STREAM* pStreams) {
  if (HRESULT hr = enter(kBlt); hr != S_OK) return hr;
  VideoProcessor* processor = processorArgument(kBlt, pVideoProcessor, 0);
  if (processor == nullptr) return E_INVALIDARG;
  auto* outputView = VideoProcessorOutputView::from(pView);
  if (outputView == nullptr || !outputView->usableIn(kBlt)) return E_INVALIDARG;
  if (outputView->device() != device()) return refuse("the output view was created on another device"), E_INVALIDARG;
  if (StreamCount == 0 || StreamCount > kVideoInputStreams || pStreams == nullptr) return E_INVALIDARG;
  VideoProcessorInputView* inputView = nullptr;
  if (pStreams[0].Enable) {
    inputView = inputOf(pStreams[0], device());
    if (inputView == nullptr) return E_INVALIDARG;
  }
  Texture* out = outputView->texture();
  Texture* in = inputView != nullptr ? inputView->texture() : nullptr;
  if (!out->accessible() || (in != nullptr && !in->accessible()))
    return refuse("a keyed-mutex resource is used without holding its keyed mutex"), E_INVALIDARG;
  if (out->mapped.load() || (in != nullptr && in->mapped.load())) return refuse("a resource is mapped"), E_INVALIDARG;

  VideoStreamState stream;
  VideoOutputState output;
  {
    std::lock_guard<std::mutex> lock(processor->mutex);
    stream = processor->stream;
    output = processor->output;
  }
  LONG outWidth = LONG(out->desc().Width);
  LONG outHeight = LONG(out->desc().Height);
  RECT whole{0, 0, outWidth, outHeight};
  RECT target = even(output.targetRectEnabled ? clipped(output.targetRect, outWidth, outHeight) : whole);
  RECT dest = stream.destRectEnabled ? even(intersection(clipped(stream.destRect, outWidth, outHeight), target)) : target;
  RECT source{};
  if (in != nullptr) {
    RECT full{0, 0, LONG(in->desc().Width), LONG(in->desc().Height)};
    source = stream.sourceRectEnabled ? clipped(stream.sourceRect, full.right, full.bottom) : full;
  }

  PixelStore& to = out->store();
  std::unique_lock<std::mutex> outLock(to.mutex, std::defer_lock);
  std::unique_lock<std::mutex> inLock;
  if (in != nullptr && &in->store() != &to) {
    inLock = std::unique_lock<std::mutex>(in->store().mutex, std::defer_lock);
    std::lock(outLock, inLock);
  } else {
    outLock.lock();
  }
  bool drawn = in != nullptr && !empty(source) && !empty(dest);
  if (!empty(target) && (!drawn || dest.left != target.left || dest.top != target.top ||
                         dest.right != target.right || dest.bottom != target.bottom)) {
    uint8_t y, cb, cr;
    backgroundCodes(output.background, output.backgroundYCbCr, output.colorSpace, &y, &cb, &cr);
    fill(nv12Region(to, target), y, cb, cr);
  }
  if (drawn) {
    const PixelStore& from = in->store();
    video::BgraImage image{from.bytes.data() + size_t(source.top) * from.layout.rowPitch + size_t(source.left) * 4,
                           int(source.right - source.left), int(source.bottom - source.top), from.layout.rowPitch};
    video::Nv12Image region = nv12Region(to, dest);
    video::scaleBgraToNv12(image, region);
    applyColorTransform(colorTransformFor(stream.colorSpace, output.colorSpace), region);
  }
  out->pendingWrite.store(true);
  queued();
  return S_OK;
}

}  // namespace platform::d3d11
