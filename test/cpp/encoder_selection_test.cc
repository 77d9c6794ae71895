// The choice of encoder at bring-up and the run-time move to NVENC, through selectEncoder and
// switchToNvenc on a session with real devices; the encoders fail through the platform.
#include "encoders/encoder_selection.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <algorithm>
#include <memory>
#include <string>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "session/native_session.h"
#include "support/failure.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;

namespace {

constexpr int64_t kNvencInvalidVersion = 15;  // NV_ENC_ERR_INVALID_VERSION
const char* const kNvencDetail = "NVENC open encode session failed (INVALID_VERSION)";

class EncoderSelectionTest : public testing_support::GpuTest {
 protected:
  void TearDown() override {
    session.reset();
    GpuTest::TearDown();
  }

  // A session on the machine's first adapter with a small picture.
  void buildSession(const control::MachineDescription& machine, EncoderPreference preference) {
    session.reset();
    control::setMachine(machine);
    session = std::make_unique<NativeSession>();
    session->options.width = 160;
    session->options.height = 96;
    session->options.fps = 30;
    session->options.bitrate = 500000;
    session->options.encoder = preference;
    session->captureContext = std::make_unique<D3DContext>();
    ASSERT_TRUE(session->captureContext->createOnFirstAdapter());
    threadLastFailure.clear();
  }

  static control::MachineDescription otherVendor() {
    control::MachineDescription machine = control::defaultMachine();
    machine.adapters[0].vendorId = 0x8086;
    return machine;
  }

  // A table without the session functions makes NVENC fail without a text of its own.
  static control::MachineDescription silentNvenc() {
    control::MachineDescription machine = control::defaultMachine();
    machine.nvencMissingFunctions = {"nvEncOpenEncodeSessionEx"};
    return machine;
  }

  bool logged(const std::string& line) {
    std::vector<std::string> lines = control::debugOutput();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

  std::unique_ptr<NativeSession> session;
};

TEST_F(EncoderSelectionTest, AutoTellsBothCausesJoinedOrMediaFoundationsAlone) {
  control::MachineDescription noMf = control::defaultMachine();
  noMf.mfSoftwareClass = false;
  buildSession(noMf, EncoderPreference::Auto);
  control::failTimes("nvEncOpenEncodeSessionEx", kNvencInvalidVersion, 7);
  EXPECT_FALSE(selectEncoder(*session));
  EXPECT_EQ(session->lastError, std::string("NVENC: ") + kNvencDetail + " | MF: MF H264 encoder not found");
  EXPECT_FALSE(session->encoder);

  // Another vendor's device never tries NVENC: Media Foundation's cause stands alone.
  control::MachineDescription other = otherVendor();
  other.mfSoftwareClass = false;
  buildSession(other, EncoderPreference::Auto);
  EXPECT_FALSE(selectEncoder(*session));
  EXPECT_EQ(session->lastError, "MF: MF H264 encoder not found");
}

TEST_F(EncoderSelectionTest, AnEncoderThatFailsWithoutATextGivesItsFixedCause) {
  buildSession(silentNvenc(), EncoderPreference::Nvenc);
  EXPECT_FALSE(selectEncoder(*session));
  EXPECT_EQ(session->lastError, "NVENC: NVENC init failed");

  buildSession(control::defaultMachine(), EncoderPreference::MediaFoundation);
  control::failOnce("MFStartup", E_FAIL);  // logged, not recorded
  EXPECT_FALSE(selectEncoder(*session));
  EXPECT_EQ(session->lastError, "MF: MF H264 init failed");

  buildSession(silentNvenc(), EncoderPreference::Auto);
  control::failOnce("MFStartup", E_FAIL);
  EXPECT_FALSE(selectEncoder(*session));
  EXPECT_EQ(session->lastError, "NVENC: NVENC init failed | MF: MF H264 init failed");
}

TEST_F(EncoderSelectionTest, AFailedSwitchEmptiesTheSlotAndKeepsTheOldName) {
  control::MachineDescription machine = control::defaultMachine();
  buildSession(machine, EncoderPreference::MediaFoundation);
  ASSERT_TRUE(selectEncoder(*session)) << session->lastError;
  ASSERT_STREQ(session->currentEncoderName(), "mf-h264");
  control::clearDebugOutput();
  control::failTimes("nvEncOpenEncodeSessionEx", kNvencInvalidVersion, 7);
  EXPECT_FALSE(switchToNvenc(*session));
  EXPECT_TRUE(logged("[kestrane-win][error] NVENC fallback encoder init failed\n"));
  EXPECT_FALSE(session->encoder) << "every later frame is dropped";
  EXPECT_STREQ(session->currentEncoderName(), "mf-h264");
  EXPECT_EQ(session->keyFrameRequests.load(), 0u);

  // A switch that works names the new encoder and asks it for a key frame (which a new encoder
  // has pending anyway, so the ask is counted rather than seen in the picture).
  ASSERT_TRUE(selectEncoder(*session));
  EXPECT_TRUE(switchToNvenc(*session));
  EXPECT_STREQ(session->currentEncoderName(), "nvenc");
  EXPECT_TRUE(logged("[kestrane-win] Switched from MF to NVENC encoder\n"));
  EXPECT_EQ(session->keyFrameRequests.load(), 1u);
}

}  // namespace
