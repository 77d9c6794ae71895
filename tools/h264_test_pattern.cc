// h264_test_pattern: encodes a known picture for the tests of the snapshot path.
//   h264_test_pattern <width> <height> <frames>
// Writes Annex B to stdout: an IDR and then P pictures of four coloured quadrants (red, green,
// blue, white from the top left, clockwise) that turn one place further each picture, so that
// the last picture of a stream tells which one a decoder showed. A strip of noise along the top
// edge keeps the key frame larger than one RTP packet.
#include <wels/codec_api.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

struct Yuv {
  uint8_t y, u, v;
};

// BT.709, studio range: the conversion the capture side makes.
Yuv fromRgb(double r, double g, double b) {
  const double y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  return {uint8_t(16 + 219 * y / 255 + 0.5), uint8_t(128 + 224 * (b - y) / 1.8556 / 255 + 0.5),
          uint8_t(128 + 224 * (r - y) / 1.5748 / 255 + 0.5)};
}

int usage() {
  std::fprintf(stderr, "usage: h264_test_pattern <width> <height> <frames>\n");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return usage();
  const int width = std::atoi(argv[1]), height = std::atoi(argv[2]), frames = std::atoi(argv[3]);
  if (width < 16 || height < 16 || width % 16 != 0 || height % 16 != 0 || frames < 1) return usage();

  ISVCEncoder* encoder = nullptr;
  if (WelsCreateSVCEncoder(&encoder) != 0 || encoder == nullptr) return std::fprintf(stderr, "no encoder\n"), 1;
  int traceLevel = WELS_LOG_ERROR;
  encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &traceLevel);
  SEncParamBase param{};
  param.iUsageType = CAMERA_VIDEO_REAL_TIME;
  param.iPicWidth = width;
  param.iPicHeight = height;
  param.iTargetBitrate = 2'000'000;
  param.iRCMode = RC_QUALITY_MODE;
  param.fMaxFrameRate = 30;
  if (encoder->Initialize(&param) != 0) return std::fprintf(stderr, "encoder refused the size\n"), 1;
  int format = videoFormatI420;
  encoder->SetOption(ENCODER_OPTION_DATAFORMAT, &format);

  const Yuv colours[4] = {fromRgb(255, 0, 0), fromRgb(0, 255, 0), fromRgb(255, 255, 255), fromRgb(0, 0, 255)};
  std::vector<uint8_t> luma(size_t(width) * size_t(height)), cb(luma.size() / 4), cr(luma.size() / 4);
  for (int frame = 0; frame < frames; ++frame) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        // Quadrants clockwise from the top left: 0, 1, 2, 3.
        const int quadrant = y < height / 2 ? (x < width / 2 ? 0 : 1) : (x < width / 2 ? 3 : 2);
        const Yuv& c = colours[(quadrant + frame) % 4];
        const bool noise = y < 16;
        luma[size_t(y) * size_t(width) + size_t(x)] = noise ? uint8_t((x * 7919u + y * 104729u) * 2654435761u >> 24) : c.y;
        if (x % 2 == 0 && y % 2 == 0) {
          const size_t at = size_t(y / 2) * size_t(width / 2) + size_t(x / 2);
          cb[at] = c.u;
          cr[at] = c.v;
        }
      }
    }
    SSourcePicture source{};
    source.iColorFormat = videoFormatI420;
    source.iPicWidth = width;
    source.iPicHeight = height;
    source.pData[0] = luma.data();
    source.pData[1] = cb.data();
    source.pData[2] = cr.data();
    source.iStride[0] = width;
    source.iStride[1] = source.iStride[2] = width / 2;
    source.uiTimeStamp = frame * 33;
    SFrameBSInfo info{};
    if (encoder->EncodeFrame(&source, &info) != cmResultSuccess) return std::fprintf(stderr, "encoding failed\n"), 1;
    for (int l = 0; l < info.iLayerNum; ++l) {
      const SLayerBSInfo& layer = info.sLayerInfo[l];
      size_t size = 0;
      for (int n = 0; n < layer.iNalCount; ++n) size += size_t(layer.pNalLengthInByte[n]);
      std::fwrite(layer.pBsBuf, 1, size, stdout);
    }
  }
  encoder->Uninitialize();
  WelsDestroySVCEncoder(encoder);
  return 0;
}
