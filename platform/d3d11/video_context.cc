// The video context's state calls: what they set is kept on the processor for its Blt.
#include <mutex>
#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/context.h"
#include "platform/d3d11/video_objects.h"

namespace platform::d3d11 {
namespace {

template <class Change>
void with(VideoProcessor* processor, Change change) {
  if (processor == nullptr) return;
  std::lock_guard<std::mutex> lock(processor->mutex);
  change(*processor);
}

template <class T>
void put(T* out, const T& value) {
  if (out != nullptr) *out = value;
}

#define VIDEO_CALL(method) "ID3D11VideoContext::" #method

}  // namespace

VideoProcessor* Context::processorArgument(const char* call, ID3D11VideoProcessor* pVideoProcessor, UINT streamIndex) {
  VideoProcessor* processor = VideoProcessor::from(pVideoProcessor);
  if (processor == nullptr) {
    debugLayerViolation(std::string(call) + ": the video processor is null");
    return nullptr;
  }
  if (!processor->usableIn(call)) return nullptr;
  if (processor->device() != device()) {
    debugLayerViolation(std::string(call) + ": the video processor was created on another device");
    return nullptr;
  }
  if (streamIndex >= kVideoInputStreams) {
    debugLayerViolation(std::string(call) + ": the stream index is beyond the processor's streams");
    return nullptr;
  }
  return processor;
}

VideoProcessor* Context::videoCall(const char* call, ID3D11VideoProcessor* pVideoProcessor, UINT streamIndex) {
  if (!enterVoid(call)) return nullptr;
  return processorArgument(call, pVideoProcessor, streamIndex);
}

void Context::VideoProcessorSetOutputTargetRect(ID3D11VideoProcessor* p, BOOL Enable, const RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputTargetRect), p), [&](VideoProcessor& vp) {
    vp.output.targetRectEnabled = Enable;
    if (pRect != nullptr) vp.output.targetRect = *pRect;
  });
}

void Context::VideoProcessorSetOutputBackgroundColor(ID3D11VideoProcessor* p, BOOL YCbCr,
                                                     const D3D11_VIDEO_COLOR* pColor) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputBackgroundColor), p), [&](VideoProcessor& vp) {
    vp.output.backgroundYCbCr = YCbCr;
    if (pColor != nullptr) vp.output.background = *pColor;
  });
}

void Context::VideoProcessorSetOutputColorSpace(ID3D11VideoProcessor* p,
                                                const D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputColorSpace), p), [&](VideoProcessor& vp) {
    if (pColorSpace != nullptr) vp.output.colorSpace = *pColorSpace;
  });
}

void Context::VideoProcessorSetOutputAlphaFillMode(ID3D11VideoProcessor* p, D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE Mode,
                                                   UINT StreamIndex) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputAlphaFillMode), p), [&](VideoProcessor& vp) {
    vp.output.alphaFillMode = Mode;
    vp.output.alphaFillStream = StreamIndex;
  });
}

void Context::VideoProcessorSetOutputConstriction(ID3D11VideoProcessor* p, BOOL Enable, SIZE Size) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputConstriction), p), [&](VideoProcessor& vp) {
    vp.output.constrictionEnabled = Enable;
    vp.output.constriction = Size;
  });
}

void Context::VideoProcessorSetOutputStereoMode(ID3D11VideoProcessor* p, BOOL Enable) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetOutputStereoMode), p), [&](VideoProcessor& vp) { vp.output.stereo = Enable; });
}

HRESULT Context::VideoProcessorSetOutputExtension(ID3D11VideoProcessor* p, const GUID*, UINT, void*) {
  constexpr const char* call = VIDEO_CALL(VideoProcessorSetOutputExtension);
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  return processorArgument(call, p, 0) == nullptr ? E_INVALIDARG : E_NOTIMPL;  // no extensions here
}

void Context::VideoProcessorGetOutputTargetRect(ID3D11VideoProcessor* p, BOOL* Enabled, RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputTargetRect), p), [&](VideoProcessor& vp) {
    put(Enabled, vp.output.targetRectEnabled);
    put(pRect, vp.output.targetRect);
  });
}

void Context::VideoProcessorGetOutputBackgroundColor(ID3D11VideoProcessor* p, BOOL* pYCbCr, D3D11_VIDEO_COLOR* pColor) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputBackgroundColor), p), [&](VideoProcessor& vp) {
    put(pYCbCr, vp.output.backgroundYCbCr);
    put(pColor, vp.output.background);
  });
}

void Context::VideoProcessorGetOutputColorSpace(ID3D11VideoProcessor* p, D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputColorSpace), p),
       [&](VideoProcessor& vp) { put(pColorSpace, vp.output.colorSpace); });
}

void Context::VideoProcessorGetOutputAlphaFillMode(ID3D11VideoProcessor* p,
                                                   D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE* pAlphaFillMode,
                                                   UINT* pStreamIndex) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputAlphaFillMode), p), [&](VideoProcessor& vp) {
    put(pAlphaFillMode, vp.output.alphaFillMode);
    put(pStreamIndex, vp.output.alphaFillStream);
  });
}

void Context::VideoProcessorGetOutputConstriction(ID3D11VideoProcessor* p, BOOL* pEnabled, SIZE* pSize) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputConstriction), p), [&](VideoProcessor& vp) {
    put(pEnabled, vp.output.constrictionEnabled);
    put(pSize, vp.output.constriction);
  });
}

void Context::VideoProcessorGetOutputStereoMode(ID3D11VideoProcessor* p, BOOL* pEnabled) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetOutputStereoMode), p),
       [&](VideoProcessor& vp) { put(pEnabled, vp.output.stereo); });
}

HRESULT Context::VideoProcessorGetOutputExtension(ID3D11VideoProcessor* p, const GUID*, UINT, void*) {
  constexpr const char* call = VIDEO_CALL(VideoProcessorGetOutputExtension);
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  return processorArgument(call, p, 0) == nullptr ? E_INVALIDARG : E_NOTIMPL;
}

void Context::VideoProcessorSetStreamFrameFormat(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                 D3D11_VIDEO_FRAME_FORMAT FrameFormat) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamFrameFormat), p, StreamIndex),
       [&](VideoProcessor& vp) { vp.stream.frameFormat = FrameFormat; });
}

void Context::VideoProcessorSetStreamColorSpace(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                const D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamColorSpace), p, StreamIndex), [&](VideoProcessor& vp) {
    if (pColorSpace != nullptr) vp.stream.colorSpace = *pColorSpace;
  });
}

void Context::VideoProcessorSetStreamOutputRate(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                D3D11_VIDEO_PROCESSOR_OUTPUT_RATE OutputRate, BOOL RepeatFrame,
                                                const DXGI_RATIONAL* pCustomRate) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamOutputRate), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.outputRate = OutputRate;
    vp.stream.repeatFrame = RepeatFrame;
    if (pCustomRate != nullptr) vp.stream.customRate = *pCustomRate;
  });
}

void Context::VideoProcessorSetStreamSourceRect(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable,
                                                const RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamSourceRect), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.sourceRectEnabled = Enable;
    if (pRect != nullptr) vp.stream.sourceRect = *pRect;
  });
}

void Context::VideoProcessorSetStreamDestRect(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable,
                                              const RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamDestRect), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.destRectEnabled = Enable;
    if (pRect != nullptr) vp.stream.destRect = *pRect;
  });
}

void Context::VideoProcessorSetStreamAlpha(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable, FLOAT Alpha) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamAlpha), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.alphaEnabled = Enable;
    vp.stream.alpha = Alpha;
  });
}

void Context::VideoProcessorSetStreamPalette(ID3D11VideoProcessor* p, UINT StreamIndex, UINT, const UINT*) {
  videoCall(VIDEO_CALL(VideoProcessorSetStreamPalette), p, StreamIndex);  // palettes are for formats not served
}

void Context::VideoProcessorSetStreamPixelAspectRatio(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL,
                                                      const DXGI_RATIONAL*, const DXGI_RATIONAL*) {
  videoCall(VIDEO_CALL(VideoProcessorSetStreamPixelAspectRatio), p, StreamIndex);
}

void Context::VideoProcessorSetStreamLumaKey(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable, FLOAT Lower,
                                             FLOAT Upper) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamLumaKey), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.lumaKeyEnabled = Enable;
    vp.stream.lumaKeyLower = Lower;
    vp.stream.lumaKeyUpper = Upper;
  });
}

void Context::VideoProcessorSetStreamStereoFormat(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL,
                                                  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT, BOOL, BOOL,
                                                  D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE, int) {
  videoCall(VIDEO_CALL(VideoProcessorSetStreamStereoFormat), p, StreamIndex);
}

void Context::VideoProcessorSetStreamAutoProcessingMode(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamAutoProcessingMode), p, StreamIndex),
       [&](VideoProcessor& vp) { vp.stream.autoProcessing = Enable; });
}

void Context::VideoProcessorSetStreamFilter(ID3D11VideoProcessor* p, UINT StreamIndex, D3D11_VIDEO_PROCESSOR_FILTER,
                                            BOOL, int) {
  videoCall(VIDEO_CALL(VideoProcessorSetStreamFilter), p, StreamIndex);  // the caps offer no filters
}

HRESULT Context::VideoProcessorSetStreamExtension(ID3D11VideoProcessor* p, UINT StreamIndex, const GUID*, UINT, void*) {
  constexpr const char* call = VIDEO_CALL(VideoProcessorSetStreamExtension);
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  return processorArgument(call, p, StreamIndex) == nullptr ? E_INVALIDARG : E_NOTIMPL;
}

void Context::VideoProcessorGetStreamFrameFormat(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                 D3D11_VIDEO_FRAME_FORMAT* pFrameFormat) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamFrameFormat), p, StreamIndex),
       [&](VideoProcessor& vp) { put(pFrameFormat, vp.stream.frameFormat); });
}

void Context::VideoProcessorGetStreamColorSpace(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                D3D11_VIDEO_PROCESSOR_COLOR_SPACE* pColorSpace) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamColorSpace), p, StreamIndex),
       [&](VideoProcessor& vp) { put(pColorSpace, vp.stream.colorSpace); });
}

void Context::VideoProcessorGetStreamOutputRate(ID3D11VideoProcessor* p, UINT StreamIndex,
                                                D3D11_VIDEO_PROCESSOR_OUTPUT_RATE* pOutputRate, BOOL* pRepeatFrame,
                                                DXGI_RATIONAL* pCustomRate) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamOutputRate), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pOutputRate, vp.stream.outputRate);
    put(pRepeatFrame, vp.stream.repeatFrame);
    put(pCustomRate, vp.stream.customRate);
  });
}

void Context::VideoProcessorGetStreamSourceRect(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled,
                                                RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamSourceRect), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pEnabled, vp.stream.sourceRectEnabled);
    put(pRect, vp.stream.sourceRect);
  });
}

void Context::VideoProcessorGetStreamDestRect(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled, RECT* pRect) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamDestRect), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pEnabled, vp.stream.destRectEnabled);
    put(pRect, vp.stream.destRect);
  });
}

void Context::VideoProcessorGetStreamAlpha(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled, FLOAT* pAlpha) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamAlpha), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pEnabled, vp.stream.alphaEnabled);
    put(pAlpha, vp.stream.alpha);
  });
}

void Context::VideoProcessorGetStreamPalette(ID3D11VideoProcessor* p, UINT StreamIndex, UINT Count, UINT* pEntries) {
  if (videoCall(VIDEO_CALL(VideoProcessorGetStreamPalette), p, StreamIndex) != nullptr && pEntries != nullptr)
    for (UINT i = 0; i < Count; ++i) pEntries[i] = 0;
}

void Context::VideoProcessorGetStreamPixelAspectRatio(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled,
                                                      DXGI_RATIONAL* pSourceAspectRatio,
                                                      DXGI_RATIONAL* pDestinationAspectRatio) {
  if (videoCall(VIDEO_CALL(VideoProcessorGetStreamPixelAspectRatio), p, StreamIndex) == nullptr) return;
  put(pEnabled, BOOL(FALSE));
  put(pSourceAspectRatio, DXGI_RATIONAL{1, 1});
  put(pDestinationAspectRatio, DXGI_RATIONAL{1, 1});
}

void Context::VideoProcessorGetStreamLumaKey(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled, FLOAT* pLower,
                                             FLOAT* pUpper) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamLumaKey), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pEnabled, vp.stream.lumaKeyEnabled);
    put(pLower, vp.stream.lumaKeyLower);
    put(pUpper, vp.stream.lumaKeyUpper);
  });
}

void Context::VideoProcessorGetStreamStereoFormat(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled,
                                                  D3D11_VIDEO_PROCESSOR_STEREO_FORMAT* pFormat, BOOL* pLeftViewFrame0,
                                                  BOOL* pBaseViewFrame0,
                                                  D3D11_VIDEO_PROCESSOR_STEREO_FLIP_MODE* pFlipMode, int* MonoOffset) {
  if (videoCall(VIDEO_CALL(VideoProcessorGetStreamStereoFormat), p, StreamIndex) == nullptr) return;
  put(pEnabled, BOOL(FALSE));
  put(pFormat, D3D11_VIDEO_PROCESSOR_STEREO_FORMAT_MONO);
  put(pLeftViewFrame0, BOOL(FALSE));
  put(pBaseViewFrame0, BOOL(FALSE));
  put(pFlipMode, D3D11_VIDEO_PROCESSOR_STEREO_FLIP_NONE);
  put(MonoOffset, 0);
}

void Context::VideoProcessorGetStreamAutoProcessingMode(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnabled) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamAutoProcessingMode), p, StreamIndex),
       [&](VideoProcessor& vp) { put(pEnabled, vp.stream.autoProcessing); });
}

void Context::VideoProcessorGetStreamFilter(ID3D11VideoProcessor* p, UINT StreamIndex, D3D11_VIDEO_PROCESSOR_FILTER,
                                            BOOL* pEnabled, int* pLevel) {
  if (videoCall(VIDEO_CALL(VideoProcessorGetStreamFilter), p, StreamIndex) == nullptr) return;
  put(pEnabled, BOOL(FALSE));
  put(pLevel, 0);
}

HRESULT Context::VideoProcessorGetStreamExtension(ID3D11VideoProcessor* p, UINT StreamIndex, const GUID*, UINT, void*) {
  constexpr const char* call = VIDEO_CALL(VideoProcessorGetStreamExtension);
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  return processorArgument(call, p, StreamIndex) == nullptr ? E_INVALIDARG : E_NOTIMPL;
}

void Context::VideoProcessorSetStreamRotation(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL Enable,
                                              D3D11_VIDEO_PROCESSOR_ROTATION Rotation) {
  with(videoCall(VIDEO_CALL(VideoProcessorSetStreamRotation), p, StreamIndex), [&](VideoProcessor& vp) {
    vp.stream.rotationEnabled = Enable;
    vp.stream.rotation = Rotation;
  });
}

void Context::VideoProcessorGetStreamRotation(ID3D11VideoProcessor* p, UINT StreamIndex, BOOL* pEnable,
                                              D3D11_VIDEO_PROCESSOR_ROTATION* pRotation) {
  with(videoCall(VIDEO_CALL(VideoProcessorGetStreamRotation), p, StreamIndex), [&](VideoProcessor& vp) {
    put(pEnable, vp.stream.rotationEnabled);
    put(pRotation, vp.stream.rotation);
  });
}

}  // namespace platform::d3d11
