#include "test/support/nvenc_encoder_fixture.h"

#include "platform/control/platform_control.h"
#include "support/failure.h"
#include "test/support/desktop_frames.h"
#include "test/support/nv12_texture.h"

namespace control = platform::control;

namespace testing_support {

bool logged(const std::string& text) { return loggedCount(text) > 0; }

int loggedCount(const std::string& text) {
  int count = 0;
  for (const std::string& line : control::debugOutput())
    count += line == "[kestrane-win][error] " + text + "\n" || line == "[kestrane-win] " + text + "\n";
  return count;
}

void NvencEncoderTest::TearDown() {
  EXPECT_EQ(control::nvencOpenSessionCount(), 0);
  GpuTest::TearDown();
}

std::unique_ptr<D3DContext> NvencEncoderTest::nvidiaContext() {
  auto d3d = std::make_unique<D3DContext>();
  EXPECT_TRUE(d3d->createPreferNvidia());
  return d3d;
}

EncodedPicture NvencEncoderTest::encodeFrame(NvencEncoder& encoder, D3DContext& d3d, int index) {
  Nv12Frame frame{int(kNvencTestWidth), int(kNvencTestHeight)};
  drawDesktop(frame, index);
  CountedRef<ID3D11Texture2D> texture = nv12Texture(d3d.device.get(), frame);
  EncodedPicture picture;
  picture.ok = encoder.encode(texture.get(), &picture.bytes, &picture.keyFrame);
  return picture;
}

std::string NvencEncoderTest::initFailure(uint32_t fps) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  threadLastFailure = "left over";
  bool initialised = encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, fps, kNvencTestBitrate);
  std::string failure = threadLastFailure;
  EXPECT_FALSE(initialised);
  EXPECT_EQ(control::nvencOpenSessionCount(), 0);
  return failure;
}

control::NvencSessionInfo NvencEncoderTest::onlySession() {
  std::vector<control::NvencSessionInfo> sessions = control::nvencSessions();
  EXPECT_EQ(sessions.size(), 1u);
  return sessions.empty() ? control::NvencSessionInfo{} : sessions[0];
}

void NvencEncoderTest::setMissingFunctions(std::vector<std::string> missing) {
  control::MachineDescription machine = control::currentMachine();
  machine.nvencMissingFunctions = std::move(missing);
  control::setMachine(machine);
}

}  // namespace testing_support
