#include "gpu/video_scaler.h"

#include "support/log.h"

namespace {

// The enumerator is made before any source size is known, so it is told the largest one expected.
constexpr UINT kContentInputWidth = 3840;
constexpr UINT kContentInputHeight = 2160;

// Colour space 20: playback, BT.709 matrix, nominal range 16-235.
D3D11_VIDEO_PROCESSOR_COLOR_SPACE studioRangeBt709() {
  D3D11_VIDEO_PROCESSOR_COLOR_SPACE space = {};
  space.Usage = 0;
  space.RGB_Range = 0;
  space.YCbCr_Matrix = 1;
  space.YCbCr_xvYCC = 0;
  space.Nominal_Range = D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_16_235;
  return space;
}

}  // namespace

// A failed init leaves the scaler empty: half an object (an output without a video context, say)
// would let convert call through an empty reference.
bool VideoScaler::init(D3DContext* context, int32_t width, int32_t height) {
  releaseAll();
  d3d = context;
  outputWidth = static_cast<uint32_t>(width);
  outputHeight = static_cast<uint32_t>(height);
  if (d3d == nullptr || !createObjects()) {
    releaseAll();
    return false;
  }
  return true;
}

// In reverse order of the fields, as destruction goes.
void VideoScaler::releaseAll() {
  inputTexture = nullptr;
  inputWidth = 0;
  inputHeight = 0;
  outputTexture.reset();
  outputView.reset();
  inputView.reset();
  enumerator.reset();
  processor.reset();
  videoContext.reset();
  videoDevice.reset();
}

bool VideoScaler::createObjects() {
  if (FAILED(videoDevice.queryFrom(d3d->device.get()))) {
    logError("QueryInterface ID3D11VideoDevice failed");
    return false;
  }
  // Every conversion drives the processor through this interface, so its absence fails here.
  if (FAILED(videoContext.queryFrom(d3d->context.get()))) {
    logError("QueryInterface ID3D11VideoContext failed");
    return false;
  }

  D3D11_VIDEO_PROCESSOR_CONTENT_DESC content = {};
  content.InputFrameFormat = D3D11_VIDEO_FRAME_FORMAT_PROGRESSIVE;
  content.InputFrameRate = {0, 0};
  content.InputWidth = kContentInputWidth;
  content.InputHeight = kContentInputHeight;
  content.OutputFrameRate = {0, 0};
  content.OutputWidth = outputWidth;
  content.OutputHeight = outputHeight;
  content.Usage = D3D11_VIDEO_USAGE_PLAYBACK_NORMAL;
  if (FAILED(videoDevice->CreateVideoProcessorEnumerator(&content, enumerator.put()))) {
    logError("CreateVideoProcessorEnumerator failed");
    return false;
  }
  if (FAILED(videoDevice->CreateVideoProcessor(enumerator.get(), 0, processor.put()))) {
    logError("CreateVideoProcessor failed");
    return false;
  }

  D3D11_TEXTURE2D_DESC desc = nv12TextureDesc(outputWidth, outputHeight);
  if (FAILED(d3d->device->CreateTexture2D(&desc, nullptr, outputTexture.put()))) {
    logError("CreateTexture2D NV12 failed");
    return false;
  }

  D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC viewDesc = {};
  viewDesc.ViewDimension = D3D11_VPOV_DIMENSION_TEXTURE2D;
  viewDesc.Texture2D.MipSlice = 0;
  if (FAILED(videoDevice->CreateVideoProcessorOutputView(outputTexture.get(), enumerator.get(), &viewDesc,
                                                          outputView.put()))) {
    logError("CreateVideoProcessorOutputView failed");
    return false;
  }
  return true;
}

// One cached view, keyed on the texture object as well as its size: a supplier that re-creates
// its texture at the same size (for a change of format, say) must not leave the view showing the
// texture before.
bool VideoScaler::ensureInputView(ID3D11Texture2D* texture, const D3D11_TEXTURE2D_DESC& desc) {
  if (inputView && inputTexture == texture && inputWidth == desc.Width && inputHeight == desc.Height) {
    return true;
  }
  inputView.reset();
  inputTexture = nullptr;
  inputWidth = desc.Width;
  inputHeight = desc.Height;

  D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC viewDesc = {};
  viewDesc.FourCC = 0;
  viewDesc.ViewDimension = D3D11_VPIV_DIMENSION_TEXTURE2D;
  viewDesc.Texture2D.MipSlice = 0;
  viewDesc.Texture2D.ArraySlice = 0;
  if (FAILED(videoDevice->CreateVideoProcessorInputView(texture, enumerator.get(), &viewDesc, inputView.put()))) {
    inputView.reset();
    logError("CreateVideoProcessorInputView failed");
    return false;
  }
  inputTexture = texture;
  return true;
}

bool VideoScaler::convert(ID3D11Texture2D* texture, CountedRef<ID3D11Texture2D>* result) {
  if (texture == nullptr || result == nullptr || !outputTexture || !outputView) return false;

  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  if (!ensureInputView(texture, desc)) return false;

  // The whole source onto the whole target: no bars, no crop; another shape is stretched.
  RECT sourceRect = {0, 0, static_cast<LONG>(desc.Width), static_cast<LONG>(desc.Height)};
  RECT targetRect = {0, 0, static_cast<LONG>(outputWidth), static_cast<LONG>(outputHeight)};
  D3D11_VIDEO_PROCESSOR_COLOR_SPACE space = studioRangeBt709();
  videoContext->VideoProcessorSetStreamFrameFormat(processor.get(), 0, D3D11_VIDEO_FRAME_FORMAT_PROGRESSIVE);
  videoContext->VideoProcessorSetStreamColorSpace(processor.get(), 0, &space);
  videoContext->VideoProcessorSetOutputColorSpace(processor.get(), &space);
  videoContext->VideoProcessorSetStreamSourceRect(processor.get(), 0, TRUE, &sourceRect);
  videoContext->VideoProcessorSetOutputTargetRect(processor.get(), TRUE, &targetRect);

  D3D11_VIDEO_PROCESSOR_STREAM stream = {};
  stream.Enable = TRUE;
  stream.OutputIndex = 0;
  stream.InputFrameOrField = 0;
  stream.PastFrames = 0;
  stream.FutureFrames = 0;
  stream.pInputSurface = inputView.get();
  if (FAILED(videoContext->VideoProcessorBlt(processor.get(), outputView.get(), 0, 1, &stream))) return false;

  result->share(outputTexture.get());
  return true;
}
