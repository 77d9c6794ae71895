#include "bench/compare/picture_report.h"

#include <wels/codec_api.h>

#include <algorithm>
#include <cstdio>

#include "bench/compare/frame_code.h"

namespace {

// Nearest rank.
double percentile(const std::vector<double>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const size_t rank = size_t(fraction * double(sorted.size()) + 0.999999);
  return sorted[std::clamp<size_t>(rank, 1, sorted.size()) - 1];
}

class Decoder {
 public:
  Decoder() {
    if (WelsCreateDecoder(&codec) != 0) codec = nullptr;
    if (codec == nullptr) return;
    SDecodingParam param{};
    param.uiTargetDqLayer = 0xFF;
    param.eEcActiveIdc = ERROR_CON_DISABLE;  // a broken picture must not pass for a readable one
    param.sVideoProperty.size = sizeof(param.sVideoProperty);
    param.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
    if (codec->Initialize(&param) != 0) {
      WelsDestroyDecoder(codec);
      codec = nullptr;
    }
  }
  ~Decoder() {
    if (codec == nullptr) return;
    codec->Uninitialize();
    WelsDestroyDecoder(codec);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // The frame code of the picture this access unit completes; false if there is none to read.
  bool readCode(const std::vector<uint8_t>& annexB, uint64_t* code) {
    if (codec == nullptr) return false;
    unsigned char* planes[3] = {};
    SBufferInfo info{};
    const DECODING_STATE state = codec->DecodeFrameNoDelay(annexB.data(), int(annexB.size()), planes, &info);
    if (state != dsErrorFree || info.iBufferStatus != 1) return false;
    const SSysMEMBuffer& picture = info.UsrData.sSystemBuffer;
    if (picture.iWidth < frame_code::kLeft + frame_code::kWidth || picture.iHeight < frame_code::kTop + frame_code::kHeight)
      return false;
    return frame_code::read(planes[0], size_t(picture.iStride[0]), frame_code::kLeft, frame_code::kTop, code);
  }

 private:
  ISVCDecoder* codec = nullptr;
};

}  // namespace

WindowFigures measure(const std::vector<AccessUnit>& units, const MeasuredWindow& window) {
  WindowFigures figures;
  figures.seconds = double(window.stopUs - window.startUs) / 1e6;
  std::vector<double> delays;
  Decoder decoder;
  uint64_t previous = 0;
  for (const AccessUnit& unit : units) {
    uint64_t code = 0;
    // A damaged unit is not decoded: what follows it fails until the next key frame, as it would
    // for a viewer.
    const bool read = !unit.damaged && decoder.readCode(unit.annexB, &code);
    if (unit.lastArrivalUs < window.startUs || unit.lastArrivalUs > window.stopUs) continue;
    ++figures.pictures;
    if (!read) {
      ++figures.unreadable;
      continue;
    }
    if (code == previous) ++figures.repeated;
    previous = code;
    delays.push_back(double(unit.lastArrivalUs - int64_t(code)) / 1000.0);
  }
  std::sort(delays.begin(), delays.end());
  figures.p50Ms = percentile(delays, 0.50);
  figures.p95Ms = percentile(delays, 0.95);
  figures.p99Ms = percentile(delays, 0.99);
  return figures;
}

std::string toJson(const WindowFigures& f, uint64_t lostPackets) {
  char text[512];
  std::snprintf(text, sizeof text,
                "{\"seconds\":%.3f,\"pictures\":%llu,\"fps\":%.2f,\"unreadable\":%llu,\"repeated\":%llu,"
                "\"lostPackets\":%llu,\"p50Ms\":%.2f,\"p95Ms\":%.2f,\"p99Ms\":%.2f}",
                f.seconds, static_cast<unsigned long long>(f.pictures), f.seconds > 0 ? double(f.pictures) / f.seconds : 0.0,
                static_cast<unsigned long long>(f.unreadable), static_cast<unsigned long long>(f.repeated),
                static_cast<unsigned long long>(lostPackets), f.p50Ms, f.p95Ms, f.p99Ms);
  return text;
}
