// NvencEncoder through its operations on the software GPU and the platform's NVENC driver: what
// it sends decodes to what was drawn, key frames come where they belong, every set-up failure
// leaves its exact text, and nothing outlives the encoder.
#include "encoders/nvenc_encoder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "gpu/d3d_context.h"
#include "platform/control/nvenc_control.h"
#include "platform/control/platform_control.h"
#include "rtp/annexb.h"
#include "support/failure.h"
#include "test/support/desktop_frames.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/h264_decoder.h"
#include "test/support/nv12_texture.h"

namespace control = platform::control;
using testing_support::DecodedPicture;
using testing_support::Nv12Frame;

namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;
constexpr uint32_t kBitrate = 4000000;

bool logged(const std::string& text) {
  for (const std::string& line : control::debugOutput())
    if (line == "[kestrane-win] " + text + "\n" || line == "[kestrane-win][error] " + text + "\n") return true;
  return false;
}

int loggedCount(const std::string& text) {
  int count = 0;
  for (const std::string& line : control::debugOutput())
    count += line == "[kestrane-win][error] " + text + "\n" || line == "[kestrane-win] " + text + "\n";
  return count;
}

struct Picture {
  bool ok = false;
  std::vector<uint8_t> bytes;
  bool keyFrame = false;
};

class NvencEncoderTest : public testing_support::GpuTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(control::nvencOpenSessionCount(), 0);
    GpuTest::TearDown();
  }

  std::unique_ptr<D3DContext> nvidiaContext() {
    auto d3d = std::make_unique<D3DContext>();
    EXPECT_TRUE(d3d->createPreferNvidia());
    return d3d;
  }

  // Draws desktop frame `index` into a new texture and encodes it.
  Picture encodeFrame(NvencEncoder& encoder, D3DContext& d3d, int index) {
    Nv12Frame frame{int(kWidth), int(kHeight)};
    testing_support::drawDesktop(frame, index);
    CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d.device.get(), frame);
    Picture picture;
    picture.ok = encoder.encode(texture.get(), &picture.bytes, &picture.keyFrame);
    return picture;
  }

  // Runs init on a fresh encoder that must fail, and gives what it left in threadLastFailure.
  std::string initFailure(uint32_t fps = 30) {
    std::unique_ptr<D3DContext> d3d = nvidiaContext();
    NvencEncoder encoder;
    threadLastFailure = "left over";
    bool initialised = encoder.init(d3d.get(), kWidth, kHeight, fps, kBitrate);
    std::string failure = threadLastFailure;
    EXPECT_FALSE(initialised);
    EXPECT_EQ(control::nvencOpenSessionCount(), 0);
    return failure;
  }

  control::NvencSessionInfo onlySession() {
    std::vector<control::NvencSessionInfo> sessions = control::nvencSessions();
    EXPECT_EQ(sessions.size(), 1u);
    return sessions.empty() ? control::NvencSessionInfo{} : sessions[0];
  }

  void setMissingFunctions(std::vector<std::string> missing) {
    control::MachineDescription machine = control::currentMachine();
    machine.nvencMissingFunctions = std::move(missing);
    control::setMachine(machine);
  }
};

TEST_F(NvencEncoderTest, NameAndInputKindNeedNoInit) {
  NvencEncoder encoder;
  EXPECT_STREQ(encoder.name(), "nvenc");
  EXPECT_FALSE(encoder.usesGpuInput());
  EXPECT_EQ(control::callCount("LoadLibraryW"), 0u);
}

TEST_F(NvencEncoderTest, PicturesDecodeToWhatWasDrawn) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  {
    NvencEncoder encoder;
    ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
    EXPECT_TRUE(encoder.usesGpuInput() == false);
    EXPECT_TRUE(logged("NVENC session opened with apiVersion=0x0000000c"));
    EXPECT_TRUE(logged("NVENC encoder initialized"));
    testing_support::H264Decoder decoder;
    for (int i = 0; i < 12; ++i) {
      Picture picture = encodeFrame(encoder, *d3d, i);
      ASSERT_TRUE(picture.ok) << "picture " << i;
      EXPECT_EQ(picture.keyFrame, i == 0) << "picture " << i;
      std::vector<DecodedPicture> decoded;
      ASSERT_TRUE(decoder.decode(picture.bytes.data(), picture.bytes.size(), decoded)) << decoder.error();
      ASSERT_EQ(decoded.size(), 1u);
      Nv12Frame drawn{int(kWidth), int(kHeight)};
      testing_support::drawDesktop(drawn, i);
      EXPECT_GE(testing_support::psnrY(drawn, decoded[0]), 35.0) << "picture " << i;
      EXPECT_GE(testing_support::psnrChroma(drawn, decoded[0]), 35.0) << "picture " << i;
    }
  }
  EXPECT_EQ(control::callCount("nvEncUnregisterResource"), 1u);
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 1u);
}

// The driver saw the stream's own configuration: Baseline, CBR with one frame's bits of buffer,
// an IDR picture a second, no B-frames, synchronous, on the first preset.
TEST_F(NvencEncoderTest, SessionRunsOnTheStreamsConfiguration) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 25, 3000000)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.apiVersion, 12u);
  EXPECT_EQ(info.preset, "P1");
  EXPECT_FALSE(info.presetConfiguration);
  EXPECT_EQ(info.tuningInfo, 3u);
  EXPECT_EQ(info.profile, "baseline");
  EXPECT_EQ(info.width, kWidth);
  EXPECT_EQ(info.height, kHeight);
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
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, 29)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.vbvBufferSize, 0u);
  EXPECT_EQ(info.vbvInitialDelay, 0u);
}

// A rate of 0 runs at one frame a second: nothing divides by it.
TEST_F(NvencEncoderTest, ZeroFrameRateRunsAtOne) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 0, kBitrate)) << threadLastFailure;
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.frameRateNum, 1u);
  EXPECT_EQ(info.idrPeriod, 1u);
  EXPECT_EQ(info.vbvBufferSize, kBitrate);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 0).ok);
}

TEST_F(NvencEncoderTest, KeyFramesAtStartOnRequestAndEveryFpsPictures) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 5, kBitrate)) << threadLastFailure;
  std::vector<bool> keys;
  std::vector<uint32_t> flags;
  for (int i = 0; i < 13; ++i) {
    if (i == 7) {
      encoder.requestKeyFrame();
      encoder.requestKeyFrame();
    }
    Picture picture = encodeFrame(encoder, *d3d, i);
    ASSERT_TRUE(picture.ok) << "picture " << i;
    keys.push_back(picture.keyFrame);
    flags.push_back(onlySession().lastPictureFlags);
    bool idr = containsNalType(picture.bytes.data(), picture.bytes.size(), kNalSliceIdr);
    EXPECT_EQ(idr, picture.keyFrame) << "picture " << i;
    // SPS and PPS stand in front of every IDR picture, forced or regular, and nowhere else.
    EXPECT_EQ(containsNalType(picture.bytes.data(), picture.bytes.size(), kNalSps), idr) << "picture " << i;
    EXPECT_EQ(containsNalType(picture.bytes.data(), picture.bytes.size(), kNalPps), idr) << "picture " << i;
    EXPECT_EQ(onlySession().lastInputTimeStamp, uint64_t(i));
  }
  // The first by itself, then every 5 from it; two requests before picture 7 give one key frame,
  // and the interval counts on from it.
  std::vector<bool> expected = {true, false, false, false, false, true, false,
                                true, false, false, false, false, true};
  EXPECT_EQ(keys, expected);
  std::vector<uint32_t> expectedFlags = {2, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0};
  EXPECT_EQ(flags, expectedFlags);
}

// A picture that fails before it reaches the driver keeps the request for the next one; one the
// driver refused has used it up.
TEST_F(NvencEncoderTest, KeyFrameRequestSurvivesOnlyFailuresBeforeSubmission) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 60, kBitrate)) << threadLastFailure;
  ASSERT_TRUE(encodeFrame(encoder, *d3d, 0).keyFrame);

  encoder.requestKeyFrame();
  control::failOnce("nvEncMapInputResource", NV_ENC_ERR_MAP_FAILED);
  EXPECT_FALSE(encodeFrame(encoder, *d3d, 1).ok);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 2).keyFrame);

  encoder.requestKeyFrame();
  control::failOnce("nvEncEncodePicture", NV_ENC_ERR_ENCODER_BUSY);
  EXPECT_FALSE(encodeFrame(encoder, *d3d, 3).ok);
  EXPECT_EQ(onlySession().mappedResources, 0u);
  Picture next = encodeFrame(encoder, *d3d, 4);
  EXPECT_TRUE(next.ok);
  EXPECT_FALSE(next.keyFrame);
  // Failed pictures count in the time stamps too.
  EXPECT_EQ(onlySession().lastInputTimeStamp, 3u);
}

TEST_F(NvencEncoderTest, FailedFetchLeavesNothingMappedOrLocked) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  control::failOnce("nvEncLockBitstream", NV_ENC_ERR_LOCK_BUSY);
  Picture failed = encodeFrame(encoder, *d3d, 0);
  EXPECT_FALSE(failed.ok);
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.mappedResources, 0u);
  EXPECT_EQ(info.lockedBitstreams, 0u);
  // Unlock and unmap failures are not looked at.
  control::failOnce("nvEncUnlockBitstream", NV_ENC_ERR_INVALID_CALL);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 1).ok);
  // The failed unlock left the buffer locked on the driver's side, so the next picture can't go.
  EXPECT_FALSE(encodeFrame(encoder, *d3d, 2).ok);
  EXPECT_EQ(onlySession().mappedResources, 0u);
}

TEST_F(NvencEncoderTest, EncodeRefusesWithoutInitOrTexture) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  {
    NvencEncoder encoder;
    Picture picture = encodeFrame(encoder, *d3d, 0);
    EXPECT_FALSE(picture.ok);
    EXPECT_EQ(control::callCount("nvEncEncodePicture"), 0u);
  }
  {
    NvencEncoder failed;
    control::failOnce("LoadLibraryW", 0);
    EXPECT_FALSE(failed.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
    EXPECT_FALSE(encodeFrame(failed, *d3d, 0).ok);
    EXPECT_STREQ(failed.name(), "nvenc");
  }
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  std::vector<uint8_t> out;
  bool keyFrame = false;
  EXPECT_FALSE(encoder.encode(nullptr, &out, &keyFrame));
  EXPECT_EQ(control::callCount("nvEncMapInputResource"), 0u);
  // The request waits for a picture that reaches the driver.
  Picture first = encodeFrame(encoder, *d3d, 0);
  EXPECT_TRUE(first.keyFrame);
}

TEST_F(NvencEncoderTest, KeyFrameHintIsOptional) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  Nv12Frame frame{int(kWidth), int(kHeight)};
  testing_support::drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d->device.get(), frame);
  std::vector<uint8_t> out;
  EXPECT_TRUE(encoder.encode(texture.get(), &out, nullptr));
  EXPECT_TRUE(containsNalType(out.data(), out.size(), kNalSliceIdr));
}

// Still content soon gives P pictures of a few bytes: each writes the diagnostic line and still
// goes out.
TEST_F(NvencEncoderTest, TinyBitstreamsAreLoggedAndSent) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  Nv12Frame frame{int(kWidth), int(kHeight)};
  testing_support::drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d->device.get(), frame);
  int tinyPictures = 0;
  std::vector<uint8_t> out;
  for (int i = 0; i < 12; ++i) {
    out.clear();
    ASSERT_TRUE(encoder.encode(texture.get(), &out, nullptr));
    if (out.size() < 256) {
      ++tinyPictures;
      EXPECT_TRUE(logged("NVENC tiny bitstream (" + std::to_string(out.size()) + " bytes)"));
    }
  }
  EXPECT_GT(tinyPictures, 0);
  int tinyLines = 0;
  for (const std::string& line : control::debugOutput())
    tinyLines += line.find("NVENC tiny bitstream") != std::string::npos;
  EXPECT_EQ(tinyLines, tinyPictures);
}

// The diagnostic line stops at 256 bytes; a bitstream too short for one NAL unit is a failure,
// with the buffer given back and the input unmapped all the same.
TEST_F(NvencEncoderTest, ShortAndEmptyBitstreams) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  control::MachineDescription machine = control::currentMachine();
  for (uint32_t limit : {256u, 255u}) {
    machine.nvencBitstreamLimit = limit;
    control::setMachine(machine);
    Picture picture = encodeFrame(encoder, *d3d, int(limit));
    EXPECT_TRUE(picture.ok);
    EXPECT_EQ(picture.bytes.size(), limit);
  }
  EXPECT_FALSE(logged("NVENC tiny bitstream (256 bytes)"));
  EXPECT_TRUE(logged("NVENC tiny bitstream (255 bytes)"));

  machine.nvencBitstreamLimit = 3;
  control::setMachine(machine);
  Picture empty = encodeFrame(encoder, *d3d, 2);
  EXPECT_FALSE(empty.ok);
  EXPECT_TRUE(empty.bytes.empty());
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.mappedResources, 0u);
  EXPECT_EQ(info.lockedBitstreams, 0u);

  machine.nvencBitstreamLimit = 0;
  control::setMachine(machine);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 3).ok);
}

TEST_F(NvencEncoderTest, FramePathFailuresLeaveTheirTexts) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;

  Nv12Frame frame{int(kWidth), int(kHeight)};
  testing_support::drawDesktop(frame, 0);
  CountedRef<ID3D11Texture2D> texture = testing_support::nv12Texture(d3d->device.get(), frame);
  std::vector<uint8_t> out;
  control::failOnce("ID3D11Device::CreateTexture2D", E_OUTOFMEMORY);
  EXPECT_FALSE(encoder.encode(texture.get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure, "NVENC input texture creation failed (hr=0x8007000e)");

  control::failOnce("nvEncRegisterResource", NV_ENC_ERR_RESOURCE_REGISTER_FAILED);
  EXPECT_FALSE(encoder.encode(texture.get(), &out, nullptr));
  EXPECT_EQ(threadLastFailure,
            "NVENC register resource failed (status=23): nvEncRegisterResource: NV_ENC_ERR_RESOURCE_REGISTER_FAILED");

  // Nothing is rebuilt: the next picture registers and goes through, still as the first key frame.
  bool keyFrame = false;
  EXPECT_TRUE(encoder.encode(texture.get(), &out, &keyFrame));
  EXPECT_TRUE(keyFrame);
  EXPECT_EQ(onlySession().registeredResources, 1u);
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
    ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
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
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  EXPECT_EQ(control::callCount("nvEncOpenEncodeSessionEx"), 3u);
  EXPECT_TRUE(logged("NVENC session opened with apiVersion=0x0000000c"));
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
  EXPECT_FALSE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
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
  ASSERT_TRUE(first->init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
  {
    NvencEncoder second;
    EXPECT_FALSE(second.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
    EXPECT_EQ(threadLastFailure, "NVENC open encode session failed (status=10)");
  }
  first.reset();
  NvencEncoder third;
  EXPECT_TRUE(third.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
}

TEST_F(NvencEncoderTest, RefusedConfigurationFallsBackToThePresetsOwn) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  control::failOnce("nvEncInitializeEncoder", NV_ENC_ERR_INVALID_PARAM);
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
  EXPECT_TRUE(logged("NVENC initialize encoder failed (INVALID_PARAM): nvEncInitializeEncoder: NV_ENC_ERR_INVALID_PARAM"));
  control::NvencSessionInfo info = onlySession();
  EXPECT_EQ(info.preset, "P1");
  EXPECT_TRUE(info.presetConfiguration);
  EXPECT_EQ(info.tuningInfo, 3u);
  EXPECT_NE(info.averageBitRate, kBitrate);  // the preset's own rate control
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
    ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
    control::NvencSessionInfo info = onlySession();
    EXPECT_EQ(info.preset, expected[presetsRefused - 1]);
    EXPECT_FALSE(info.presetConfiguration);
    EXPECT_EQ(info.averageBitRate, kBitrate);
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
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
  EXPECT_EQ(threadLastFailure, "");
  EXPECT_EQ(onlySession().preset, "P4");
}

// An older driver without the call that takes a tuning still configures through the one without.
TEST_F(NvencEncoderTest, DriverWithoutPresetConfigEx) {
  setMissingFunctions({"nvEncGetEncodePresetConfigEx"});
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
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

TEST_F(NvencEncoderTest, TeardownGivesEverythingBack) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  for (int round = 0; round < 3; ++round) {
    NvencEncoder encoder;
    ASSERT_TRUE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate)) << threadLastFailure;
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(encodeFrame(encoder, *d3d, i).ok);
    EXPECT_EQ(control::nvencOpenSessionCount(), 1);
  }
  EXPECT_EQ(control::nvencOpenSessionCount(), 0);
  // Each init loads the library again; it is never unloaded.
  EXPECT_EQ(control::callCount("LoadLibraryW"), 3u);
  EXPECT_EQ(control::callCount("FreeLibrary"), 0u);
  EXPECT_EQ(control::callCount("nvEncUnregisterResource"), 3u);
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 3u);
  d3d.reset();
  // GpuTest checks that no texture or device is left alive.
}

// A session that failed in init is gone before the encoder is, and deleting it is harmless.
TEST_F(NvencEncoderTest, FailedInitLeavesNothingBehind) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  for (const char* call : {"nvEncCreateBitstreamBuffer", "nvEncInitializeEncoder"}) {
    control::failTimes(call, NV_ENC_ERR_INVALID_PARAM, 6);
    NvencEncoder encoder;
    EXPECT_FALSE(encoder.init(d3d.get(), kWidth, kHeight, 30, kBitrate));
    EXPECT_EQ(control::nvencOpenSessionCount(), 0) << call;
    control::clearFaults();
  }
  NvencEncoder neverInitialised;
}

}  // namespace
