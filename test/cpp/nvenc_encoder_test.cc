// NvencEncoder's frame path through its operations on the software GPU and the platform's NVENC
// driver: what it sends decodes to what was drawn, key frames come where they belong, failures
// cost only their picture, and nothing outlives the encoder.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "encoders/nvenc_encoder.h"
#include "gpu/d3d_context.h"
#include "platform/control/nvenc_control.h"
#include "platform/control/platform_control.h"
#include "rtp/annexb.h"
#include "support/failure.h"
#include "test/support/desktop_frames.h"
#include "test/support/h264_decoder.h"
#include "test/support/nv12_texture.h"
#include "test/support/nvenc_encoder_fixture.h"

namespace control = platform::control;
using testing_support::kNvencTestBitrate;
using testing_support::kNvencTestHeight;
using testing_support::kNvencTestWidth;
using testing_support::logged;
using testing_support::Nv12Frame;
using testing_support::NvencEncoderTest;
using testing_support::DecodedPicture;
using testing_support::EncodedPicture;

namespace {

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
    ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
    EXPECT_TRUE(encoder.usesGpuInput() == false);
    EXPECT_TRUE(logged("NVENC session opened with apiVersion=0x0000000c"));
    EXPECT_TRUE(logged("NVENC encoder initialized"));
    testing_support::H264Decoder decoder;
    for (int i = 0; i < 12; ++i) {
      EncodedPicture picture = encodeFrame(encoder, *d3d, i);
      ASSERT_TRUE(picture.ok) << "picture " << i;
      EXPECT_EQ(picture.keyFrame, i == 0) << "picture " << i;
      std::vector<DecodedPicture> decoded;
      ASSERT_TRUE(decoder.decode(picture.bytes.data(), picture.bytes.size(), decoded)) << decoder.error();
      ASSERT_EQ(decoded.size(), 1u);
      Nv12Frame drawn{int(kNvencTestWidth), int(kNvencTestHeight)};
      testing_support::drawDesktop(drawn, i);
      EXPECT_GE(testing_support::psnrY(drawn, decoded[0]), 35.0) << "picture " << i;
      EXPECT_GE(testing_support::psnrChroma(drawn, decoded[0]), 35.0) << "picture " << i;
    }
  }
  EXPECT_EQ(control::callCount("nvEncUnregisterResource"), 1u);
  EXPECT_EQ(control::callCount("nvEncDestroyEncoder"), 1u);
}

TEST_F(NvencEncoderTest, KeyFramesAtStartOnRequestAndEveryFpsPictures) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 5, kNvencTestBitrate)) << threadLastFailure;
  std::vector<bool> keys;
  std::vector<uint32_t> flags;
  for (int i = 0; i < 13; ++i) {
    if (i == 7) {
      encoder.requestKeyFrame();
      encoder.requestKeyFrame();
    }
    EncodedPicture picture = encodeFrame(encoder, *d3d, i);
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
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 60, kNvencTestBitrate)) << threadLastFailure;
  ASSERT_TRUE(encodeFrame(encoder, *d3d, 0).keyFrame);

  encoder.requestKeyFrame();
  control::failOnce("nvEncMapInputResource", NV_ENC_ERR_MAP_FAILED);
  EXPECT_FALSE(encodeFrame(encoder, *d3d, 1).ok);
  EXPECT_TRUE(encodeFrame(encoder, *d3d, 2).keyFrame);

  encoder.requestKeyFrame();
  control::failOnce("nvEncEncodePicture", NV_ENC_ERR_ENCODER_BUSY);
  EXPECT_FALSE(encodeFrame(encoder, *d3d, 3).ok);
  EXPECT_EQ(onlySession().mappedResources, 0u);
  EncodedPicture next = encodeFrame(encoder, *d3d, 4);
  EXPECT_TRUE(next.ok);
  EXPECT_FALSE(next.keyFrame);
  // Failed pictures count in the time stamps too.
  EXPECT_EQ(onlySession().lastInputTimeStamp, 3u);
}

TEST_F(NvencEncoderTest, FailedFetchLeavesNothingMappedOrLocked) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  control::failOnce("nvEncLockBitstream", NV_ENC_ERR_LOCK_BUSY);
  EncodedPicture failed = encodeFrame(encoder, *d3d, 0);
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
    EncodedPicture picture = encodeFrame(encoder, *d3d, 0);
    EXPECT_FALSE(picture.ok);
    EXPECT_EQ(control::callCount("nvEncEncodePicture"), 0u);
  }
  {
    NvencEncoder failed;
    control::failOnce("LoadLibraryW", 0);
    EXPECT_FALSE(failed.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate));
    EXPECT_FALSE(encodeFrame(failed, *d3d, 0).ok);
    EXPECT_STREQ(failed.name(), "nvenc");
  }
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  std::vector<uint8_t> out;
  bool keyFrame = false;
  EXPECT_FALSE(encoder.encode(nullptr, &out, &keyFrame));
  EXPECT_EQ(control::callCount("nvEncMapInputResource"), 0u);
  // The request waits for a picture that reaches the driver.
  EncodedPicture first = encodeFrame(encoder, *d3d, 0);
  EXPECT_TRUE(first.keyFrame);
}

TEST_F(NvencEncoderTest, KeyFrameHintIsOptional) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  NvencEncoder encoder;
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  Nv12Frame frame{int(kNvencTestWidth), int(kNvencTestHeight)};
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
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  Nv12Frame frame{int(kNvencTestWidth), int(kNvencTestHeight)};
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
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
  control::MachineDescription machine = control::currentMachine();
  for (uint32_t limit : {256u, 255u}) {
    machine.nvencBitstreamLimit = limit;
    control::setMachine(machine);
    EncodedPicture picture = encodeFrame(encoder, *d3d, int(limit));
    EXPECT_TRUE(picture.ok);
    EXPECT_EQ(picture.bytes.size(), limit);
  }
  EXPECT_FALSE(logged("NVENC tiny bitstream (256 bytes)"));
  EXPECT_TRUE(logged("NVENC tiny bitstream (255 bytes)"));

  machine.nvencBitstreamLimit = 3;
  control::setMachine(machine);
  EncodedPicture empty = encodeFrame(encoder, *d3d, 2);
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
  ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;

  Nv12Frame frame{int(kNvencTestWidth), int(kNvencTestHeight)};
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

TEST_F(NvencEncoderTest, TeardownGivesEverythingBack) {
  std::unique_ptr<D3DContext> d3d = nvidiaContext();
  for (int round = 0; round < 3; ++round) {
    NvencEncoder encoder;
    ASSERT_TRUE(encoder.init(d3d.get(), kNvencTestWidth, kNvencTestHeight, 30, kNvencTestBitrate)) << threadLastFailure;
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

}  // namespace
