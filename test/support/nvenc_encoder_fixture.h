// The fixture of NvencEncoder's tests: a fresh platform per test that must end with no NVENC
// session open and nothing alive on the GPU, a device on the NVIDIA adapter, pictures of the
// desktop encoded through the encoder, and what the platform saw.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "encoders/nvenc_encoder.h"
#include "gpu/d3d_context.h"
#include "platform/control/nvenc_control.h"
#include "test/support/gpu_test_helpers.h"

namespace testing_support {

constexpr uint32_t kNvencTestWidth = 320;
constexpr uint32_t kNvencTestHeight = 240;
constexpr uint32_t kNvencTestBitrate = 4000000;

// Whether the log holds `text` as a line of its own, at either level; how many times it does.
bool logged(const std::string& text);
int loggedCount(const std::string& text);

struct EncodedPicture {
  bool ok = false;
  std::vector<uint8_t> bytes;
  bool keyFrame = false;
};

class NvencEncoderTest : public GpuTest {
 protected:
  void TearDown() override;

  std::unique_ptr<D3DContext> nvidiaContext();
  // Draws desktop frame `index` into a new texture and encodes it.
  EncodedPicture encodeFrame(NvencEncoder& encoder, D3DContext& d3d, int index);
  // Runs init on a fresh encoder that must fail, and gives what it left in threadLastFailure.
  std::string initFailure(uint32_t fps = 30);
  // The one open session, as the driver took it.
  platform::control::NvencSessionInfo onlySession();
  void setMissingFunctions(std::vector<std::string> missing);
};

}  // namespace testing_support
