// The compare bench's measuring parts: the frame code survives H.264 and nothing else passes for
// one; the depacketiser puts pictures back together as the three senders packetise them.
#include <gtest/gtest.h>
#include <wels/codec_api.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "bench/compare/frame_code.h"
#include "bench/compare/rtp_depacketiser.h"
#include "test/support/h264_decoder.h"
#include "test/support/rtp_reassembly.h"

namespace {

using testing_support::Bytes;
constexpr int kWidth = 1920, kHeight = 1080;

// A noisy grey desktop with the code painted where the painter puts it, as studio-range luma.
std::vector<uint8_t> lumaWithCode(uint64_t value, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> luma(size_t(kWidth) * kHeight);
  for (uint8_t& sample : luma) sample = uint8_t(60 + random() % 120);
  std::vector<uint32_t> code(size_t(frame_code::kWidth) * frame_code::kHeight);
  frame_code::paint(value, code.data(), frame_code::kWidth);
  for (int y = 0; y < frame_code::kHeight; ++y) {
    for (int x = 0; x < frame_code::kWidth; ++x) {
      const uint32_t rgb = code[size_t(y) * frame_code::kWidth + size_t(x)];
      const double level = 0.2126 * (rgb >> 16 & 0xFF) + 0.7152 * (rgb >> 8 & 0xFF) + 0.0722 * (rgb & 0xFF);
      luma[size_t(frame_code::kTop + y) * kWidth + size_t(frame_code::kLeft + x)] = uint8_t(16 + 219 * level / 255 + 0.5);
    }
  }
  return luma;
}

uint64_t readOrZero(const std::vector<uint8_t>& luma) {
  uint64_t value = 0;
  return frame_code::read(luma.data(), kWidth, frame_code::kLeft, frame_code::kTop, &value) ? value : 0;
}

// Encodes the pictures with OpenH264 at a bit rate well below the bench's and decodes them again.
std::vector<testing_support::DecodedPicture> throughH264(const std::vector<std::vector<uint8_t>>& lumas) {
  ISVCEncoder* encoder = nullptr;
  EXPECT_EQ(WelsCreateSVCEncoder(&encoder), 0);
  int traceLevel = WELS_LOG_ERROR;
  encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &traceLevel);
  SEncParamExt param{};
  encoder->GetDefaultParams(&param);
  param.iUsageType = CAMERA_VIDEO_REAL_TIME;
  param.iPicWidth = param.sSpatialLayers[0].iVideoWidth = kWidth;
  param.iPicHeight = param.sSpatialLayers[0].iVideoHeight = kHeight;
  param.iTargetBitrate = param.sSpatialLayers[0].iSpatialBitrate = 3'000'000;
  param.iRCMode = RC_BITRATE_MODE;
  param.fMaxFrameRate = param.sSpatialLayers[0].fFrameRate = 60;
  param.bEnableFrameSkip = false;  // every picture must come out to be read
  EXPECT_EQ(encoder->InitializeExt(&param), 0);
  std::vector<uint8_t> chroma(size_t(kWidth) * kHeight / 4, 128), stream;
  for (size_t i = 0; i < lumas.size(); ++i) {
    const std::vector<uint8_t>& luma = lumas[i];
    SSourcePicture picture{};
    picture.uiTimeStamp = (long long)(i * 1000 / 60);  // milliseconds, as the rate control counts them
    picture.iColorFormat = videoFormatI420;
    picture.iPicWidth = kWidth;
    picture.iPicHeight = kHeight;
    picture.iStride[0] = kWidth;
    picture.iStride[1] = picture.iStride[2] = kWidth / 2;
    picture.pData[0] = const_cast<uint8_t*>(luma.data());
    picture.pData[1] = picture.pData[2] = chroma.data();
    SFrameBSInfo info{};
    EXPECT_EQ(encoder->EncodeFrame(&picture, &info), 0);
    for (int layer = 0; layer < info.iLayerNum; ++layer) {
      const SLayerBSInfo& bits = info.sLayerInfo[layer];
      int size = 0;
      for (int nal = 0; nal < bits.iNalCount; ++nal) size += bits.pNalLengthInByte[nal];
      stream.insert(stream.end(), bits.pBsBuf, bits.pBsBuf + size);
    }
  }
  encoder->Uninitialize();
  WelsDestroySVCEncoder(encoder);
  testing_support::H264Decoder decoder;
  std::vector<testing_support::DecodedPicture> pictures;
  EXPECT_TRUE(decoder.decodeStream(stream, pictures)) << decoder.error();
  return pictures;
}

TEST(FrameCodeTest, TimesSurviveH264AndNothingElsePassesForACode) {
  const std::vector<uint64_t> values = {1, 0x0123456789ABCDEFull, 5'000'000'123ull, ~0ull};
  std::vector<std::vector<uint8_t>> lumas;
  for (size_t i = 0; i < values.size(); ++i) {
    lumas.push_back(lumaWithCode(values[i], uint32_t(i)));
    EXPECT_EQ(readOrZero(lumas.back()), values[i]);
  }
  const std::vector<testing_support::DecodedPicture> pictures = throughH264(lumas);
  ASSERT_EQ(pictures.size(), values.size());
  for (size_t i = 0; i < values.size(); ++i) EXPECT_EQ(readOrZero(pictures[i].y), values[i]) << "picture " << i;

  // One block turned over fails the check; a desktop without the painter has no code.
  std::vector<uint8_t> flipped = lumaWithCode(0x0123456789ABCDEFull, 7);
  uint8_t* block = &flipped[size_t(frame_code::kTop + 3 * frame_code::kBlock) * kWidth + frame_code::kLeft + 2 * frame_code::kBlock];
  for (int y = 0; y < frame_code::kBlock; ++y)
    for (int x = 0; x < frame_code::kBlock; ++x) block[size_t(y) * kWidth + size_t(x)] ^= 0xFF;
  uint64_t value = 0;
  EXPECT_FALSE(frame_code::read(flipped.data(), kWidth, frame_code::kLeft, frame_code::kTop, &value));
  const std::vector<uint8_t> grey(size_t(kWidth) * kHeight, 126), black(size_t(kWidth) * kHeight, 16);
  EXPECT_FALSE(frame_code::read(grey.data(), kWidth, frame_code::kLeft, frame_code::kTop, &value));
  EXPECT_FALSE(frame_code::read(black.data(), kWidth, frame_code::kLeft, frame_code::kTop, &value));
}

Bytes rtp(uint16_t sequence, uint32_t timestamp, bool marker, const Bytes& payload) {
  Bytes packet(12 + payload.size());
  const uint8_t header[12] = {0x80, uint8_t((marker ? 0x80 : 0) | 96), uint8_t(sequence >> 8), uint8_t(sequence),
                              uint8_t(timestamp >> 24), uint8_t(timestamp >> 16), uint8_t(timestamp >> 8),
                              uint8_t(timestamp), 0x12, 0x34, 0x56, 0x78};
  std::copy(header, header + 12, packet.begin());
  std::copy(payload.begin(), payload.end(), packet.begin() + 12);
  return packet;
}

Bytes stapA(const std::vector<Bytes>& nals) {
  Bytes payload = {uint8_t((nals[0][0] & 0x60) | 24)};
  for (const Bytes& nal : nals) {
    payload.insert(payload.end(), {uint8_t(nal.size() >> 8), uint8_t(nal.size())});
    payload.insert(payload.end(), nal.begin(), nal.end());
  }
  return payload;
}

// The FU-A packets of `nal`, `pieces` of them.
std::vector<Bytes> fuA(const Bytes& nal, size_t pieces) {
  std::vector<Bytes> payloads;
  const size_t body = nal.size() - 1, step = (body + pieces - 1) / pieces;
  for (size_t begin = 1; begin < nal.size(); begin += step) {
    const size_t end = std::min(nal.size(), begin + step);
    const uint8_t header = uint8_t((begin == 1 ? 0x80 : 0) | (end == nal.size() ? 0x40 : 0) | (nal[0] & 0x1F));
    Bytes payload = {uint8_t((nal[0] & 0xE0) | 28), header};
    payload.insert(payload.end(), nal.begin() + long(begin), nal.begin() + long(end));
    payloads.push_back(payload);
  }
  return payloads;
}

struct Collected {
  std::vector<AccessUnit> units;
  RtpDepacketiser depacketiser{[this](AccessUnit&& unit) { units.push_back(std::move(unit)); }};
  void push(const Bytes& datagram, int64_t arrivalUs) { depacketiser.push(datagram.data(), datagram.size(), arrivalUs); }
};

TEST(RtpDepacketiserTest, PicturesOfSeveralSlicesComeBackWithTheirLastArrival) {
  using testing_support::makeNal;
  const Bytes sps = makeNal(0x67, 12), pps = makeNal(0x68, 5), idr1 = makeNal(0x65, 3000, 1), idr2 = makeNal(0x65, 400, 2);
  const Bytes p1 = makeNal(0x41, 900, 3), p2 = makeNal(0x41, 2500, 4);
  Collected c;
  uint16_t sequence = 65530;  // wraps round on the way
  // A key frame: parameter sets aggregated, a first slice in fragments, a second slice whole.
  c.push(rtp(sequence++, 1000, false, stapA({sps, pps})), 10);
  for (const Bytes& piece : fuA(idr1, 3)) c.push(rtp(sequence++, 1000, false, piece), 11);
  c.push(rtp(sequence++, 1000, true, idr2), 12);
  // A sender that sets no marker: the next timestamp ends the picture.
  c.push(rtp(sequence++, 2000, false, p1), 20);
  for (const Bytes& piece : fuA(p2, 2)) c.push(rtp(sequence++, 2000, false, piece), 21);
  // A picture that lost its middle fragment, and a whole one after it.
  const std::vector<Bytes> pieces = fuA(p2, 3);
  c.push(rtp(sequence++, 3000, false, pieces[0]), 30);
  sequence++;
  c.push(rtp(sequence++, 3000, true, pieces[2]), 31);
  c.push(rtp(sequence++, 4000, true, p1), 40);

  ASSERT_EQ(c.units.size(), 4u);
  EXPECT_EQ(c.units[0].annexB, testing_support::annexB({sps, pps, idr1, idr2}));
  EXPECT_EQ(c.units[0].lastArrivalUs, 12);
  EXPECT_FALSE(c.units[0].damaged);
  EXPECT_EQ(c.units[1].annexB, testing_support::annexB({p1, p2}));
  EXPECT_EQ(c.units[1].lastArrivalUs, 21);
  EXPECT_FALSE(c.units[1].damaged);
  EXPECT_TRUE(c.units[2].damaged);
  EXPECT_EQ(c.units[3].annexB, testing_support::annexB({p1}));
  EXPECT_FALSE(c.units[3].damaged);
  EXPECT_EQ(c.depacketiser.lost(), 1u);

  // Another sender on the same port is not mixed in.
  Bytes stranger = rtp(sequence, 5000, true, p1);
  stranger[8] = 0x99;
  c.push(stranger, 50);
  c.depacketiser.flush();
  EXPECT_EQ(c.units.size(), 4u);
}

}  // namespace
