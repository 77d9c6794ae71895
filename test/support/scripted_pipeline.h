// Stand-ins behind the system's two interfaces, for tests of the session: a capture source that
// hands out textures on request and an encoder that answers from a script.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "capture/capture_source.h"
#include "encoders/video_encoder.h"

namespace testing_support {

struct ScriptedOutput {
  bool ok = true;
  std::vector<uint8_t> bytes;  // Annex B
  unsigned delayMs = 0;        // how long encode takes
};

class ScriptedEncoder : public VideoEncoder {
 public:
  explicit ScriptedEncoder(const char* encoderName = "nvenc", bool gpuInput = false)
      : encoderName(encoderName), gpuInput(gpuInput) {}

  bool init(D3DContext*, uint32_t, uint32_t, uint32_t, uint32_t) override { return true; }
  // Answers the next scripted output; an empty script answers a P slice.
  bool encode(ID3D11Texture2D* texture, std::vector<uint8_t>* out, bool* keyFrame) override;
  void requestKeyFrame() override { ++keyFrameRequests; }
  bool usesGpuInput() const override { return gpuInput; }
  const char* name() const override { return encoderName; }

  std::deque<ScriptedOutput> script;
  int encodeCalls = 0;
  int keyFrameRequests = 0;
  D3D11_TEXTURE2D_DESC lastInput{};

 private:
  const char* encoderName;
  bool gpuInput;
};

// Hands out `texture` with the next timestamp of `timestamps`, or nothing when they are used up.
class ScriptedCapture : public CaptureSource {
 public:
  bool init(D3DContext*, const StartOptions&) override { return true; }
  void setFrameRate(uint32_t) override {}
  bool acquireFrame(CountedRef<ID3D11Texture2D>& slot, int64_t& timestamp) override;
  void releaseFrame() override { ++releases; }

  CountedRef<ID3D11Texture2D> texture;
  std::deque<int64_t> timestamps;
  int releases = 0;
};

// Annex B units: SPS, PPS, an IDR slice and a P slice, each behind a four-byte start code.
std::vector<uint8_t> spsPps();
std::vector<uint8_t> idrSlice();
std::vector<uint8_t> pSlice();
std::vector<uint8_t> concat(std::vector<std::vector<uint8_t>> parts);

}  // namespace testing_support
