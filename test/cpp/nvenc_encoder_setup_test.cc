// NvencEncoder's set-up on the platform's NVENC driver: the configuration the driver sees, the
// API version and preset tries, and the exact text every failure leaves in threadLastFailure.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "encoders/nvenc_encoder.h"
#include "gpu/d3d_context.h"
#include "platform/control/nvenc_control.h"
#include "platform/control/platform_control.h"
#include "support/failure.h"
#include "test/support/desktop_frames.h"
#include "test/support/nv12_texture.h"
#include "test/support/nvenc_encoder_fixture.h"

namespace control = platform::control;
using testing_support::kNvencTestBitrate;
using testing_support::kNvencTestHeight;
using testing_support::kNvencTestWidth;
using testing_support::logged;
using testing_support::Nv12Frame;
using testing_support::NvencEncoderTest;
using testing_support::loggedCount;

namespace {

// The driver saw the stream's own configuration: Baseline, CBR with one frame's bits of buffer,
// an IDR picture a second, no B-frames, synchronous, on the first preset.
TEST_F(NvencEncoderTest, SessionRunsOnTheStreamsConfiguration) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 25, 3000000)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.apiVersion, 12u);
  EXPECT_EQ(info.preset, "P1");
  EXPECT_FALSE(info.presetConfiguration);
  EXPECT_EQ(info.tuningInfo, 3u);
  EXPECT_EQ(info.profile, "baseline");
  EXPECT_EQ(info.width, kNvencTestWidth);
  EXPECT_EQ(info.height, kNvencTestHeight);
  EXPECT_EQ(info.frameRateNum, 25u);
  EXPECT_EQ(info.frameRateDen, 1u);
  EXPECT_EQ(info.enableEncodeAsync, 0u);
  EXPECT_EQ(info.enablePTD, 1u);
  EXPECT_EQ(info.rateControlMode, 2u);
  EXPECT_EQ(info.averageBitRate, 3000000u);
  EXPECT_EQ(info.maxBitRate, 3000000u);
  EXPECT_EQ(info.vbvBufferSize, 120000u);
  EXPECT_EQ(info.vbvInitialDelay, 120000u);
  EXPECT_EQ(info.gopLength, 25u);
  EXPECT_EQ(info.idrPeriod, 25u);
  EXPECT_EQ(info.frameIntervalP, 1);
  EXPECT_TRUE(info.repeatSPSPPS);
  EXPECT_EQ(info.bitstreamBuffers, 1u);
  EXPECT_EQ(info.registeredResources, 0u);  // the texture comes with the first picture
}

TEST_F(NvencEncoderTest, BitrateBelowFrameRateGivesNoBuffer) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, 29)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.vbvBufferSize, 0u);
  EXPECT_EQ(info.vbvInitialDelay, 0u);
}

// A rate of 0 runs at one frame a second: nothing divides by it.
TEST_F(NvencEncoderTest, ZeroFrameRateRunsAtOne) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 0, kNvencTestBitrate)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.frameRateNum, 1u);
  EXPECT_EQ(info.idrPeriod, 1u);
  EXPECT_EQ(info.vbvBufferSize, kNvencTestBitrate);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 0).ok);
}

TEST_F(NvencEncoderTest, MissingDriverOrEntryPointHasItsText) {
  control::MachineDescription machine = control::currentMachine();
  machine.nvencInstalled = false;
  control::setMachine(machine);
  EXPECT_EQ(initFailure(), "nvEncodeAPI64.dll not found (update NVIDIA driver)");

  control::setMachine(control::defaultMachine());
  control::failOnce("LoadLibraryW", 0);
  EXPECT_EQ(initFailure(), "nvEncodeAPI64.dll not found (update NVIDIA driver)");

  control::failOnce("GetProcAddress", 0);
  EXPECT_EQ(initFailure(), "NvEncodeAPICreateInstance export not found");

  control::failOnce("NvEncodeAPICreateInstance", NV_ENC_ERR_INVALID_VERSION);
  EXPECT_EQ(initFailure(), "NvEncodeAPICreateInstance failed");
  EXPECT_TRUE(logged("NvEncodeAPICreateInstance failed"));
}

// Without the session or initialise functions there is nothing to tell: selection gives its own
// fixed text.
TEST_F(NvencEncoderTest, TableWithoutSessionFunctionsFailsSilently) {
  setMissingFunctions({"nvEncOpenEncodeSessionEx"});
  EXPECT_EQ(initFailure(), "");
  setMissingFunctions({"nvEncInitializeEncoder"});
  EXPECT_EQ(initFailure(), "");
  EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), 0u);
}

// On a driver of API 12.1, which takes every version the encoder tries.
TEST_F(NvencEncoderTest, EachApiVersionIsTriedInTurn) {
  const char* const opened[] = {"0x0100000c", "0x0000000c", "0x0000000b", "0x0000000a", "0x00000009", "0x00000008"};
  const uint32_t versions[] = {0x0100000C, 12, 11, 10, 9, 8};
  for (uint32_t refused = 1; refused <= 6; ++refused) {
    SCOPED_TRACE(refused);
    control::reset();
    control::MachineDescription machine = control::defaultMachine();
    machine.nvencApiVersion = 0x0100000C;
    control::setMachine(machine);
    control::failTimes("nvEncOpenEncodeSessionEx", NV_ENC_ERR_INVALID_VERSION, refused);
    std::unique_ptr<D3DContext> d3d = nvidiaContext();
    NvencEncoder encoder;
    ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
    EXPECT_TRUE(logged(std::string("NVENC session opened with apiVersion=") + opened[refused - 1]));
    EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), refused + 1);
    EXPECT_EQ(onlySession().apiVersion, versions[refused - 1]);
    // The structures keep their 12.0 words whatever the session's version: the driver takes them.
    EXPECT_TRUE(encodeFrame(encoder, *d3d, 0).ok);
  }
}

// A 12.0 driver refuses the 12.1 try by itself, so one refusal of 12 ends on the second 12.
TEST_F(NvencEncoderTest, DriverOf12_0RefusesTheMinorVersionTry) {
  control::failOnce("nvEncOpenEncodeSessionEx", NV_ENC_ERR_GENERIC);
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), 3u);
  EXPECT_TRUE(logged("NVENC session opened with apiVersion=0x0000000c"));
  // The driver's refusal of 12.1 came with a handle; only the session that runs is left open.
  EXPECT_EQ(control::nvencOpenSessionCount(), 1);
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 1u);
}

// A driver older than the encoder's structures refuses its function list outright.
TEST_F(NvencEncoderTest, DriverOlderThanTheStructures) {
  control::MachineDescription machine = control::defaultMachine();
  machine.nvencApiVersion = 11;
  control::setMachine(machine);
  EXPECT_EQ(initFailure(), "NvEncodeAPICreateInstance failed");
}

TEST_F(NvencEncoderTest, OpenSessionFailureTellsTheLastStatus) {
  control::failTimes("nvEncOpenEncodeSessionEx", NV_ENC_ERR_INVALID_VERSION, 7);
  EXPECT_EQ(initFailure(), "NVENC open encode session failed (INVALID_VERSION)");
  EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), 7u);

  control::failTimes("nvEncOpenEncodeSessionEx", 9, 7);
  EXPECT_EQ(initFailure(), "NVENC open encode session failed (status=9)");

  // Only the last try counts.
  control::failTimes("nvEncOpenEncodeSessionEx", NV_ENC_ERR_INVALID_PARAM, 6);
  control::planFault({"nvEncOpenEncodeSessionEx", NV_ENC_ERR_NO_ENCODE_DEVICE, 6, 1, 0, true});
  EXPECT_EQ(initFailure(), "NVENC open encode session failed (NO_ENCODE_DEVICE)");
}

TEST_F(NvencEncoderTest, DevicesOfOtherVendorsHaveNoEncoder) {
  control::setMachine(testing_support::machineOf({testing_support::adapter(0x1002, 0x73BF, 1)}));
  std::unique_ptr<D3DContext> d3d = std::make_unique<D3DContext>();
  ASSERT_TRUE(d3d->createOnFirstAdapter());
  NvencEncoder encoder;
  EXPECT_FALSE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
  EXPECT_EQ(threadLastFailure, "NVENC open encode session failed (UNSUPPORTED_DEVICE)");
  EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), 7u);
}

// A board that allows one session at a time refuses a second one until the first is gone.
TEST_F(NvencEncoderTest, SessionLimitOfTheBoard) {
  control::MachineDescription machine = control::defaultMachine();
  machine.nvencSessionLimit = 1;
  control::setMachine(machine);
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  auto first = std::make_unique<NvencEncoder>();
  ASSERT_TRUE(first->init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  {
    NvencEncoder second;
    EXPECT_FALSE(second.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
    EXPECT_EQ(threadLastFailure, "NVENC open encode session failed (status=10)");
  }
  first.reset();
  NvencEncoder third;
  EXPECT_TRUE(third.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
}

TEST_F(NvencEncoderTest, RefusedConfigurationFallsBackToThePresetsOwn) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  control::failOnce("nvEncInitializeEncoder", NV_ENC_ERR_INVALID_PARAM);
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
  EXPECT_TRUE(logged("NVENC initialize encoder failed (INVALID_PARAM): nvEncInitializeEncoder: NV_ENC_ERR_INVALID_PARAM"));
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.preset, "P1");
  EXPECT_TRUE(info.presetConfiguration);
  EXPECT_EQ(info.tuningInfo, 3u);
  EXPECT_NE(info.averageBitRate, kNvencTestBitrate);  // the preset's own rate control
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 0).keyFrame);
}

TEST_F(NvencEncoderTest, PresetsAreTriedInOrderP1P4P3) {
  const char* const expected[] = {"P4", "P3"};
  for (uint32_t presetsRefused = 1; presetsRefused <= 2; ++presetsRefused) {
    SCOPED_TRACE(presetsRefused);
    control::reset();
    control::failTimes("nvEncInitializeEncoder", NV_ENC_ERR_INVALID_PARAM, 2 * presetsRefused);
    std::unique_ptr<D3DContext> d3d = nvidiaContext();
    NvencEncoder encoder;
    ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
    control::NvencSessionInfo info = onlySession();
    EXPECT_EQ(info.preset, expected[presetsRefused - 1]);
    EXPECT_FALSE(info.presetConfiguration);
    EXPECT_EQ(info.averageBitRate, kNvencTestBitrate);
  }
}

TEST_F(NvencEncoderTest, NoPresetWorking) {
  control::failTimes("nvEncInitializeEncoder", NV_ENC_ERR_INVALID_PARAM, 6);
  EXPECT_EQ(initFailure(), "NVENC initialize encoder failed for all presets");
  EXPECT_EQ(loggedCount("NVENC initialize encoder failed (INVALID_PARAM): nvEncInitializeEncoder: NV_ENC_ERR_INVALID_PARAM"),
            6);
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 1u);

  // A preset the driver can't describe is skipped without a word.
  control::reset();
  control::failTimes("nvEncGetEncodePresetConfigEx", NV_ENC_ERR_INVALID_PARAM, 3);
  EXPECT_EQ(initFailure(), "NVENC initialize encoder failed for all presets");
  EXPECT_EQ(control::callCount("nvEncInitializeEncoder"), 0u);
}

TEST_F(NvencEncoderTest, PresetWithoutConfigIsSkipped) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  control::failOnce("nvEncGetEncodePresetConfigEx", NV_ENC_ERR_UNSUPPORTED_PARAM);
  NvencEncoder encoder;
  threadLastFailure = "left over";
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
  EXPECT_EQ(threadLastFailure, "");
  EXPECT_EQ(onlySession().preset, "P4");
}

// An older driver without the call that takes a tuning still configures through the one without.
TEST_F(NvencEncoderTest, DriverWithoutPresetConfigEx) {
  setMissingFunctions({"nvEncGetEncodePresetConfigEx"});
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  EXPECT_EQ(control::callCount("nvEncGetEncodePresetConfig"), 1u);
  EXPECT_EQ(control::callCount("nvEncGetEncodePresetConfigEx"), 0u);
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.tuningInfo, 3u);
  EXPECT_EQ(info.rateControlMode, 2u);
}

TEST_F(NvencEncoderTest, BitstreamBufferFailureClosesTheSession) {
  control::failOnce("nvEncCreateBitstreamBuffer", NV_ENC_ERR_OUT_OF_MEMORY);
  EXPECT_EQ(initFailure(),
            "NVENC create bitstream buffer failed (status=10): nvEncCreateBitstreamBuffer: NV_ENC_ERR_OUT_OF_MEMORY");
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 1u);
}

// Without nvEncGetLastErrorString, or when it has nothing to say, the status alone is told.
TEST_F(NvencEncoderTest, FailureTextWithoutTheDriversOwn) {
  setMissingFunctions({"nvEncGetLastErrorString"});
  control::failOnce("nvEncCreateBitstreamBuffer", NV_ENC_ERR_INVALID_PARAM);
  EXPECT_EQ(initFailure(), "NVENC create bitstream buffer failed (INVALID_PARAM)");

  setMissingFunctions({});
  control::failOnce("nvEncCreateBitstreamBuffer", NV_ENC_ERR_INVALID_DEVICE);
  control::failOnce("nvEncGetLastErrorString", 0);
  EXPECT_EQ(initFailure(), "NVENC create bitstream buffer failed (INVALID_DEVICE)");
}

// A session that failed in init is gone before the encoder is, and deleting it is harmless.
TEST_F(NvencEncoderTest, FailedInitLeavesNothingBehind) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  for (const char* call : {"nvEncCreateBitstreamBuffer", "nvEncInitializeEncoder"}) {
    control::failTimes(call, NV_ENC_ERR_INVALID_PARAM, 6);
    NvencEncoder encoder;
    EXPECT_FALSE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
    EXPECT_EQ(control::nvencOpenSessionCount(), 0) << call;
    control::clearFaults();
  }
  NvencEncoder neverInitialised;
}

}  // namespace
