#include "platform/video/h264_encoder.h"

#include <emmintrin.h>
#include <wels/codec_api.h>

#include <algorithm>
#include <thread>

namespace platform::video {

namespace {

// The codec spreads the bitrate over at most this many pictures a second, whatever rate it is
// given; faster rates get a bitrate scaled down to match, so that each picture gets its share.
constexpr int kCodecMaxFps = 60;
// More slices cost bits at every slice edge and gain little past four cores.
constexpr unsigned kMaxThreads = 4;

// NV12's row of Cb,Cr pairs into a row of Cb and a row of Cr, 16 pairs a step.
void splitChromaRow(const uint8_t* pairs, int count, uint8_t* cb, uint8_t* cr) {
  const __m128i low = _mm_set1_epi16(0x00FF);
  int i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + 2 * i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + 2 * i + 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cb + i),
                     _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cr + i), _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8)));
  }
  for (; i < count; ++i) {
    cb[i] = pairs[2 * i];
    cr[i] = pairs[2 * i + 1];
  }
}

// The codec's first error line since the last failure: later ones only say who called whom.
void keepCodecMessage(void* context, int, const char* message) {
  std::string& kept = *static_cast<std::string*>(context);
  if (!kept.empty() || message == nullptr) return;
  kept = message;
  while (!kept.empty() && (kept.back() == '\n' || kept.back() == '\r')) kept.pop_back();
}

}  // namespace

int defaultH264Threads() {
  unsigned cores = std::thread::hardware_concurrency();
  return int(std::clamp(cores, 1u, kMaxThreads));
}

H264Encoder::~H264Encoder() { close(); }

void H264Encoder::close() {
  if (codec == nullptr) return;
  codec->Uninitialize();
  WelsDestroySVCEncoder(codec);
  codec = nullptr;
}

bool H264Encoder::fail(const std::string& text) {
  lastError = codecMessage.empty() ? text : text + ": " + codecMessage;
  codecMessage.clear();
  return false;
}

bool H264Encoder::open(const H264EncoderSettings& settings) {
  close();
  current = settings;
  pictureIndex = 0;
  picturesSinceIdr = 0;
  keyFramePending = true;
  lastError.clear();
  codecMessage.clear();
  const H264EncoderSettings& s = settings;
  if (s.width <= 0 || s.height <= 0 || s.width % 2 != 0 || s.height % 2 != 0) {
    return fail("H.264 encoder needs an even width and height, not " + std::to_string(s.width) + "x" +
                std::to_string(s.height));
  }
  if (s.fps < 1 || s.bitrate < 1 || s.idrInterval < 0 || s.threads < 0) {
    return fail("H.264 encoder needs fps and bitrate of at least 1 and an interval and threads of at least 0");
  }
  const int threads = s.threads > 0 ? std::min(s.threads, int(kMaxThreads)) : defaultH264Threads();
  if (WelsCreateSVCEncoder(&codec) != 0 || codec == nullptr) {
    codec = nullptr;
    return fail("H.264 encoder could not be created");
  }
  int traceLevel = WELS_LOG_ERROR;
  WelsTraceCallback callback = keepCodecMessage;
  void* context = &codecMessage;
  codec->SetOption(ENCODER_OPTION_TRACE_CALLBACK, &callback);
  codec->SetOption(ENCODER_OPTION_TRACE_CALLBACK_CONTEXT, &context);
  codec->SetOption(ENCODER_OPTION_TRACE_LEVEL, &traceLevel);

  const int codecFps = std::min(s.fps, kCodecMaxFps);
  const int codecBitrate = std::max(1, int(int64_t(s.bitrate) * codecFps / s.fps));
  SEncParamExt p;
  codec->GetDefaultParams(&p);
  p.iUsageType = s.content == H264Content::Screen ? SCREEN_CONTENT_REAL_TIME : CAMERA_VIDEO_REAL_TIME;
  p.iPicWidth = s.width;
  p.iPicHeight = s.height;
  p.iTargetBitrate = codecBitrate;
  p.iMaxBitrate = UNSPECIFIED_BIT_RATE;
  p.iRCMode = RC_BITRATE_MODE;
  p.fMaxFrameRate = float(codecFps);
  p.iTemporalLayerNum = 1;
  p.iSpatialLayerNum = 1;
  SSpatialLayerConfig& layer = p.sSpatialLayers[0];
  layer.iVideoWidth = s.width;
  layer.iVideoHeight = s.height;
  layer.fFrameRate = float(codecFps);
  layer.iSpatialBitrate = codecBitrate;
  layer.iMaxSpatialBitrate = UNSPECIFIED_BIT_RATE;
  layer.uiProfileIdc = PRO_BASELINE;
  layer.uiLevelIdc = LEVEL_UNKNOWN;
  layer.sSliceArgument.uiSliceMode = threads > 1 ? SM_FIXEDSLCNUM_SLICE : SM_SINGLE_SLICE;
  layer.sSliceArgument.uiSliceNum = unsigned(threads);
  p.iComplexityMode = LOW_COMPLEXITY;
  p.uiIntraPeriod = 0;  // IDRs are forced from here, so that requested ones restart the count
  p.iNumRefFrame = 1;
  p.eSpsPpsIdStrategy = CONSTANT_ID;  // receivers that cache parameter sets see one id
  p.bPrefixNalAddingCtrl = false;
  p.bEnableSSEI = false;
  p.bSimulcastAVC = false;
  p.iPaddingFlag = 0;
  p.iEntropyCodingModeFlag = 0;
  p.bEnableFrameSkip = false;
  p.iMultipleThreadIdc = threads;
  // Slices follow where the picture's work lies: on desktop content that came within 0.3 dB of
  // one slice at 1080p, where fixed slices lost up to 1.5 dB in the second after a key frame.
  p.bUseLoadBalancing = threads > 1;
  p.bEnableDenoise = false;
  p.bEnableAdaptiveQuant = false;  // its texture analysis costs a tenth of the time at 1080p
  p.bEnableSceneChangeDetect = false;  // it would put key frames where nobody asked for them
  p.bEnableLongTermReference = false;
  p.bEnableFrameCroppingFlag = true;
  if (codec->InitializeExt(&p) != cmResultSuccess) {
    close();
    return fail("H.264 encoder refused " + std::to_string(s.width) + "x" + std::to_string(s.height) + " at " +
                std::to_string(s.fps) + " fps and " + std::to_string(s.bitrate) + " bit/s");
  }
  int format = videoFormatI420;
  codec->SetOption(ENCODER_OPTION_DATAFORMAT, &format);
  planes.assign(size_t(s.width / 2) * size_t(s.height / 2) * 2, 0);
  return true;
}

bool H264Encoder::encode(const Nv12Picture& picture, std::vector<uint8_t>& out, bool& keyFrame) {
  keyFrame = false;
  codecMessage.clear();
  if (codec == nullptr) return fail("H.264 encoder is not open");
  if (picture.width != current.width || picture.height != current.height || picture.luma == nullptr ||
      picture.chroma == nullptr || picture.lumaPitch < size_t(picture.width) ||
      picture.chromaPitch < size_t(picture.width)) {
    return fail("H.264 encoder got a picture of " + std::to_string(picture.width) + "x" +
                std::to_string(picture.height) + " or without planes, for an encoder of " +
                std::to_string(current.width) + "x" + std::to_string(current.height));
  }
  const int chromaWidth = current.width / 2, chromaHeight = current.height / 2;
  uint8_t* cb = planes.data();
  uint8_t* cr = cb + size_t(chromaWidth) * size_t(chromaHeight);
  for (int y = 0; y < chromaHeight; ++y) {
    const size_t row = size_t(y) * size_t(chromaWidth);
    splitChromaRow(picture.chroma + size_t(y) * picture.chromaPitch, chromaWidth, cb + row, cr + row);
  }

  // The codec only reads the source; luma goes in where it lies.
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = current.width;
  source.iPicHeight = current.height;
  source.pData[0] = const_cast<uint8_t*>(picture.luma);
  source.pData[1] = cb;
  source.pData[2] = cr;
  source.iStride[0] = int(picture.lumaPitch);
  source.iStride[1] = chromaWidth;
  source.iStride[2] = chromaWidth;
  source.uiTimeStamp = pictureIndex * 1000 / current.fps;

  if (keyFramePending || (current.idrInterval > 0 && picturesSinceIdr >= current.idrInterval)) {
    codec->ForceIntraFrame(true);
  }
  SFrameBSInfo info{};
  const int result = codec->EncodeFrame(&source, &info);
  if (result != cmResultSuccess) return fail("H.264 encoder failed on a picture (" + std::to_string(result) + ")");
  if (info.eFrameType == videoFrameTypeSkip || info.eFrameType == videoFrameTypeInvalid) {
    return fail("H.264 encoder gave no picture");
  }
  ++pictureIndex;
  for (int l = 0; l < info.iLayerNum; ++l) {
    const SLayerBSInfo& bits = info.sLayerInfo[l];
    size_t size = 0;
    for (int n = 0; n < bits.iNalCount; ++n) size += size_t(bits.pNalLengthInByte[n]);
    out.insert(out.end(), bits.pBsBuf, bits.pBsBuf + size);
  }
  keyFrame = info.eFrameType == videoFrameTypeIDR;
  if (keyFrame) {
    keyFramePending = false;
    picturesSinceIdr = 1;
  } else {
    ++picturesSinceIdr;
  }
  return true;
}

}  // namespace platform::video
