#include <gtest/gtest.h>

#include <vector>

#include "rtp/annexb.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<Bytes> nalBytes(const Bytes& buffer) {
  std::vector<Bytes> result;
  for (const NalUnit& nal : scanAnnexB(buffer.data(), buffer.size()))
    result.emplace_back(nal.data, nal.data + nal.size);
  return result;
}

TEST(ScanAnnexB, TooShortOrNullBuffersHoldNoNalUnit) {
  Bytes startCode = {0, 0, 1};
  EXPECT_TRUE(scanAnnexB(nullptr, 100).empty());
  EXPECT_TRUE(scanAnnexB(startCode.data(), startCode.size()).empty());
  Bytes bare = {0, 0, 0, 1};
  EXPECT_TRUE(scanAnnexB(bare.data(), bare.size()).empty());
  Bytes one = {0, 0, 0, 1, 0x41};
  std::vector<NalUnit> nals = scanAnnexB(one.data(), one.size());
  ASSERT_EQ(nals.size(), 1u);
  EXPECT_EQ(nals[0].size, 1u);
  EXPECT_EQ(nals[0].type, 1);
  EXPECT_EQ(nals[0].nri, 2);
}

TEST(ScanAnnexB, MixedStartCodesEndEachUnitAtTheNextCode) {
  Bytes buffer = {0, 0, 0, 1, 0x67, 0xAA, 0xBB, 0, 0, 1, 0x68, 0xCC, 0, 0, 0, 1, 0x65, 0x88, 0x99, 0x01};
  std::vector<NalUnit> nals = scanAnnexB(buffer.data(), buffer.size());
  ASSERT_EQ(nals.size(), 3u);
  EXPECT_EQ(nals[0].type, 7);
  EXPECT_EQ(nals[1].type, 8);
  EXPECT_EQ(nals[2].type, 5);
  EXPECT_EQ(nalBytes(buffer), (std::vector<Bytes>{{0x67, 0xAA, 0xBB}, {0x68, 0xCC}, {0x65, 0x88, 0x99, 0x01}}));
  EXPECT_EQ(nals[2].data + nals[2].size, buffer.data() + buffer.size()) << "the last unit runs to the end";
}

TEST(ScanAnnexB, ABufferWithoutStartCodeIsOneUnit) {
  Bytes buffer = {0x61, 0x10, 0x20, 0x30, 0x40};
  std::vector<NalUnit> nals = scanAnnexB(buffer.data(), buffer.size());
  ASSERT_EQ(nals.size(), 1u);
  EXPECT_EQ(nals[0].size, 5u);
  EXPECT_EQ(nals[0].type, 1);
  EXPECT_EQ(nals[0].nri, 3);
}

TEST(ScanAnnexB, TwoZerosThenNoStartCodeLoseTheFirstFourBytes) {
  Bytes buffer = {0, 0, 7, 9, 0x41, 0x55};
  EXPECT_EQ(nalBytes(buffer), (std::vector<Bytes>{{0x41, 0x55}}));
}

TEST(ScanAnnexB, ZerosInFrontOfAFourByteCodeStayWithThePrecedingUnit) {
  Bytes fourZeros = {0, 0, 0, 1, 0x41, 0x11, 0, 0, 0, 0, 1, 0x41, 0x22};
  EXPECT_EQ(nalBytes(fourZeros), (std::vector<Bytes>{{0x41, 0x11, 0}, {0x41, 0x22}}));
  Bytes fiveZeros = {0, 0, 0, 1, 0x41, 0x11, 0, 0, 0, 0, 0, 1, 0x41, 0x22};
  EXPECT_EQ(nalBytes(fiveZeros), (std::vector<Bytes>{{0x41, 0x11, 0, 0}, {0x41, 0x22}}));
}

TEST(ContainsNalType, FindsTypesBehindEitherStartCodeButNotInTinyBuffers) {
  Bytes buffer = {0, 0, 1, 0x09, 0x10, 0, 0, 0, 1, 0x65, 0x88};
  EXPECT_TRUE(containsNalType(buffer.data(), buffer.size(), 9));
  EXPECT_TRUE(containsNalType(buffer.data(), buffer.size(), 5));
  EXPECT_FALSE(containsNalType(buffer.data(), buffer.size(), 1));
  Bytes tiny = {0, 0, 1, 0x65};
  EXPECT_FALSE(containsNalType(tiny.data(), tiny.size(), 5));
  EXPECT_FALSE(containsNalType(nullptr, 50, 5));
}

class PrependParameterSets : public testing::Test {
 protected:
  ParameterSetCache cache{{0x67, 0x42, 0x00}, {0x68, 0xCE}};
  Bytes pFrame = {0, 0, 0, 1, 0x41, 0x9A, 0x01};
};

TEST_F(PrependParameterSets, PutsCachedSetsInFrontOfASliceThatLacksThem) {
  Bytes frame = pFrame;
  prependParameterSets(cache, frame);
  Bytes expected = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0, 0, 0, 1, 0x68, 0xCE, 0, 0, 0, 1, 0x41, 0x9A, 0x01};
  EXPECT_EQ(frame, expected);
}

TEST_F(PrependParameterSets, CachedSetsWithStartCodesAreNotGivenASecond) {
  ParameterSetCache coded{{0, 0, 1, 0x67, 0x42}, {0, 0, 0, 1, 0x68, 0xCE}};
  Bytes frame = pFrame;
  prependParameterSets(coded, frame);
  Bytes expected = {0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xCE, 0, 0, 0, 1, 0x41, 0x9A, 0x01};
  EXPECT_EQ(frame, expected);
}

TEST_F(PrependParameterSets, LeavesFramesAloneWhenNothingIsToBeDone) {
  Bytes complete = {0, 0, 0, 1, 0x67, 0x01, 0, 0, 0, 1, 0x68, 0x02, 0, 0, 0, 1, 0x65, 0x03};
  Bytes frame = complete;
  prependParameterSets(cache, frame);
  EXPECT_EQ(frame, complete) << "a frame with both sets";
  Bytes setsOnly = {0, 0, 0, 1, 0x67, 0x01, 0, 0, 0, 1, 0x68, 0x02};
  frame = setsOnly;
  prependParameterSets(cache, frame);
  EXPECT_EQ(frame, setsOnly) << "no slice";
  frame = pFrame;
  prependParameterSets(ParameterSetCache{cache.sps, {}}, frame);
  EXPECT_EQ(frame, pFrame) << "half-empty cache";
}

TEST_F(PrependParameterSets, AFrameWithOnlyOneSetGetsBoth) {
  Bytes frame = {0, 0, 0, 1, 0x67, 0x77, 0, 0, 0, 1, 0x65, 0x01};
  prependParameterSets(cache, frame);
  std::vector<NalUnit> nals = scanAnnexB(frame.data(), frame.size());
  ASSERT_EQ(nals.size(), 4u);
  EXPECT_EQ(nals[0].type, 7);
  EXPECT_EQ(nals[1].type, 8);
  EXPECT_EQ(nals[2].type, 7);
  EXPECT_EQ(nals[3].type, 5);
}

TEST(NormalizeToAnnexB, RewritesLengthPrefixedUnits) {
  Bytes input = {0, 0, 0, 2, 0x41, 0x9A};
  Bytes out = {0xFF};
  normalizeToAnnexB(input.data(), input.size(), out);
  EXPECT_EQ(out, (Bytes{0, 0, 0, 1, 0x41, 0x9A}));
}

TEST(NormalizeToAnnexB, AStrayTailKeepsTheUnitsConvertedBeforeIt) {
  Bytes input = {0, 0, 0, 2, 0x41, 0x9A, 0, 0, 0, 1, 0x65, 0x77};
  Bytes out;
  normalizeToAnnexB(input.data(), input.size(), out);
  EXPECT_EQ(out, (Bytes{0, 0, 0, 1, 0x41, 0x9A, 0, 0, 0, 1, 0x65}));
}

TEST(NormalizeToAnnexB, ALengthPastTheEndGivesNothingUnlessTheInputIsAnnexB) {
  Bytes runaway = {0, 0, 0, 9, 0x41, 0x9A};
  Bytes out = {1, 2, 3};
  normalizeToAnnexB(runaway.data(), runaway.size(), out);
  EXPECT_TRUE(out.empty());
  Bytes annexB = {0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80};
  normalizeToAnnexB(annexB.data(), annexB.size(), out);
  EXPECT_EQ(out, annexB);
  Bytes threeByteCode = {0, 0, 1, 0x65, 0x88, 0x84, 0x21, 0xA0};
  normalizeToAnnexB(threeByteCode.data(), threeByteCode.size(), out);
  EXPECT_EQ(out, threeByteCode);
}

TEST(NormalizeToAnnexB, TooShortInputGivesNothing) {
  Bytes startCode = {0, 0, 1};
  Bytes out = {9};
  normalizeToAnnexB(startCode.data(), startCode.size(), out);
  EXPECT_TRUE(out.empty());
  normalizeToAnnexB(nullptr, 10, out);
  EXPECT_TRUE(out.empty());
}

}  // namespace

namespace {

// The scanner's search, one position at a time: the reference the fast search must agree with.
std::vector<Bytes> referenceScan(const Bytes& b) {
  std::vector<Bytes> nals;
  uint64_t size = b.size();
  if (size < 4) return nals;
  uint64_t pos = 0;
  while (true) {
    uint64_t start = pos;
    if (b[pos] == 0 && b[pos + 1] == 0) start = b[pos + 2] == 1 ? pos + 3 : pos + 4;
    uint64_t end = size;
    for (uint64_t next = start + 1; next + 3 < size; ++next) {
      if (b[next] == 0 && b[next + 1] == 0 && (b[next + 2] == 1 || (b[next + 2] == 0 && b[next + 3] == 1))) {
        end = next;
        break;
      }
    }
    if (end <= start) break;
    nals.emplace_back(b.begin() + long(start), b.begin() + long(end));
    pos = end;
    if (pos + 3 >= size) break;
  }
  return nals;
}

TEST(ScanAnnexB, AgreesWithAPlainSearchOnDenseZerosAndOnes) {
  uint32_t state = 99;
  for (int round = 0; round < 3000; ++round) {
    Bytes buffer(4 + round % 60);
    for (uint8_t& byte : buffer) {
      state = state * 1103515245u + 12345u;
      uint32_t pick = (state >> 16) % 8;
      byte = pick < 4 ? 0 : pick < 6 ? 1 : uint8_t(0x41 + pick);
    }
    ASSERT_EQ(nalBytes(buffer), referenceScan(buffer)) << "round " << round;
  }
}

}  // namespace
