#include <gtest/gtest.h>
#include <winsock2.h>

#include <random>

#include "platform/control/platform_control.h"
#include "rtp/rtp_sender.h"
#include "test/support/rtp_reassembly.h"
#include "test/support/udp_receiver.h"

namespace control = platform::control;
using testing_support::annexB;
using testing_support::Bytes;
using testing_support::makeNal;
using testing_support::RtpPacket;

namespace {

class RtpSenderTest : public testing::Test {
 protected:
  void SetUp() override {
    control::reset();
    ASSERT_TRUE(receiver.ok());
    ASSERT_TRUE(sender.open("127.0.0.1", receiver.port(), 0x11223344, 96));
    sender.sequence = 7;
  }

  // Loopback delivers within sendto, so a short quiet spell means everything has arrived.
  std::vector<Bytes> datagrams() { return receiver.receiveAll(50); }

  std::vector<RtpPacket> packets() {
    std::vector<RtpPacket> parsed;
    for (const Bytes& datagram : datagrams()) {
      RtpPacket packet;
      EXPECT_TRUE(testing_support::parseRtp(datagram, &packet));
      parsed.push_back(packet);
    }
    return parsed;
  }

  bool send(const std::vector<Bytes>& nals, bool marker, bool keyFrame) {
    Bytes buffer = annexB(nals);
    return sender.sendAccessUnit(buffer.data(), buffer.size(), 90000, marker, keyFrame);
  }

  testing_support::UdpReceiver receiver;
  RtpSender sender;
};

TEST_F(RtpSenderTest, HeaderBytesCarryVersionTypeSequenceTimestampAndSsrc) {
  ASSERT_TRUE(send({makeNal(0x41, 50)}, false, false));
  ASSERT_TRUE(send({makeNal(0x41, 50)}, true, false));
  std::vector<Bytes> got = datagrams();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(Bytes(got[0].begin(), got[0].begin() + 12),
            (Bytes{0x80, 0x60, 0x00, 0x07, 0x00, 0x01, 0x5F, 0x90, 0x11, 0x22, 0x33, 0x44}));
  EXPECT_EQ(got[1][1], 0xE0);
  EXPECT_EQ(got[1][3], 0x08);
  EXPECT_EQ(Bytes(got[0].begin() + 12, got[0].end()), makeNal(0x41, 50)) << "single NAL unit, no start code";
}

// The FU indicator keeps F and NRI of the unit's header byte; the FU header keeps its type.
TEST_F(RtpSenderTest, LargeUnitsTravelAsFuAFragments) {
  struct Case {
    uint8_t header;
    uint8_t indicator;
    uint8_t fuHeaders[3];
  };
  const Case cases[] = {
      {0x65, 0x7C, {0x85, 0x05, 0x45}},
      {0x41, 0x5C, {0x81, 0x01, 0x41}},
      {0xE1, 0xFC, {0x81, 0x01, 0x41}},  // forbidden bit set: it travels on untouched
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "header " << int(c.header));
    uint16_t first = sender.sequence;
    ASSERT_TRUE(send({makeNal(c.header, 2500)}, true, (c.header & 0x1F) == 5));
    std::vector<Bytes> got = datagrams();
    ASSERT_EQ(got.size(), 3u);
    const size_t sizes[3] = {1192, 1192, 157};
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(got[i].size(), sizes[i]);
      EXPECT_EQ(got[i][3], uint8_t(first + i));
      EXPECT_EQ(Bytes(got[i].begin() + 4, got[i].begin() + 8), (Bytes{0x00, 0x01, 0x5F, 0x90}))
          << "every fragment carries the access unit's timestamp";
      EXPECT_EQ(got[i][12], c.indicator);
      EXPECT_EQ(got[i][13], c.fuHeaders[i]);
      EXPECT_EQ((got[i][1] & 0x80) != 0, i == 2) << "marker only on the last fragment";
    }
  }
}

TEST_F(RtpSenderTest, SmallAccessUnitsTravelAsOneStapA) {
  ASSERT_TRUE(send({makeNal(0x67, 20), makeNal(0x68, 4), makeNal(0x41, 100)}, true, false));
  std::vector<Bytes> got = datagrams();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].size(), 143u);
  EXPECT_EQ(got[0][1], 0xE0);
  EXPECT_EQ(got[0][12], 0x78);
  EXPECT_EQ(got[0][13], 0x00);
  EXPECT_EQ(got[0][14], 20);

  // The STAP-A header takes the largest NRI of its units, wherever that unit stands.
  ASSERT_TRUE(send({makeNal(0x06, 10), makeNal(0x41, 30)}, true, false));
  got = datagrams();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0][12], 0x58);
}

TEST_F(RtpSenderTest, SizeBoundariesChooseThePacketForm) {
  struct Case {
    const char* what;
    std::vector<size_t> sizes;
    bool keyFrame;
    std::vector<size_t> datagramSizes;
    uint8_t firstPayloadType;  // low five bits of the first payload byte
  };
  const Case cases[] = {
      {"1180 bytes fit one single NAL unit packet", {1180}, false, {1192}, 1},
      {"1181 bytes take two fragments of 1178 and 2", {1181}, false, {1192, 16}, 28},
      {"1179 bytes, not a key frame", {1179}, false, {1191}, 1},
      {"1179 bytes in a key frame go the split way", {1179}, true, {1191}, 1},
      {"1177 bytes in a key frame make a one-unit STAP-A", {1177}, true, {1192}, 24},
      {"two units aggregating to exactly 1180", {600, 575}, false, {1192}, 24},
      {"two units aggregating to 1181", {600, 576}, false, {612, 588}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<Bytes> nals;
    for (size_t size : c.sizes) nals.push_back(makeNal(0x41, size));
    ASSERT_TRUE(send(nals, true, c.keyFrame));
    std::vector<Bytes> got = datagrams();
    ASSERT_EQ(got.size(), c.datagramSizes.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i].size(), c.datagramSizes[i]);
    EXPECT_EQ(got[0][12] & 0x1F, c.firstPayloadType);
    EXPECT_EQ(got.back()[1] & 0x80, 0x80) << "the last packet carries the marker";
  }
}

TEST_F(RtpSenderTest, SequenceWrapsInsideARunOfFragments) {
  sender.sequence = 65534;
  ASSERT_TRUE(send({makeNal(0x65, 3000)}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].sequence, 65534);
  EXPECT_EQ(got[1].sequence, 65535);
  EXPECT_EQ(got[2].sequence, 0);
  EXPECT_EQ(sender.sequence, 1);
}

TEST_F(RtpSenderTest, TheSplitPathPutsParameterSetsFirst) {
  Bytes delimiter = makeNal(0x09, 2);
  Bytes sps = makeNal(0x67, 20);
  Bytes pps = makeNal(0x68, 4);
  Bytes slice = makeNal(0x65, 2000);
  ASSERT_TRUE(send({delimiter, sps, pps, slice}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 4u);
  EXPECT_EQ(got[0].payload[0] & 0x1F, 24) << "SPS and PPS as one STAP-A";
  EXPECT_FALSE(got[0].marker);
  EXPECT_EQ(got[1].payload, delimiter);
  EXPECT_FALSE(got[1].marker);
  EXPECT_TRUE(got[3].marker);
  bool ok = false;
  EXPECT_EQ(testing_support::reassembleNalUnits(got, &ok), (std::vector<Bytes>{sps, pps, delimiter, slice}));
  EXPECT_TRUE(ok);
}

TEST_F(RtpSenderTest, ALoneParameterSetBesideALargeSliceGoesAsItsOwnPacket) {
  ASSERT_TRUE(send({makeNal(0x67, 20), makeNal(0x65, 1500)}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].payload, makeNal(0x67, 20));
  EXPECT_FALSE(got[0].marker);
}

// Too large to share a STAP-A, the sets go one by one, still first and still without marker.
TEST_F(RtpSenderTest, ParameterSetsTooLargeToAggregateGoAsSinglePackets) {
  Bytes sps = makeNal(0x67, 700);
  Bytes pps = makeNal(0x68, 700);
  Bytes slice = makeNal(0x65, 100);
  ASSERT_TRUE(send({slice, sps, pps}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].payload, sps);
  EXPECT_EQ(got[1].payload, pps);
  EXPECT_EQ(got[2].payload, slice);
  EXPECT_FALSE(got[0].marker || got[1].marker);
  EXPECT_TRUE(got[2].marker);
}

TEST_F(RtpSenderTest, OutputWithoutMarkerSendsEachUnitWithoutMarker) {
  ASSERT_TRUE(send({makeNal(0x67, 20), makeNal(0x68, 4)}, false, false));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_FALSE(got[0].marker);
  EXPECT_FALSE(got[1].marker);
}

TEST_F(RtpSenderTest, ABufferWithoutUnitsSendsNothingAndKeepsTheSequence) {
  Bytes empty = {0, 0, 0, 1};
  EXPECT_FALSE(sender.sendAccessUnit(empty.data(), empty.size(), 90000, true, true));
  EXPECT_FALSE(sender.sendAccessUnit(nullptr, 0, 90000, true, true));
  EXPECT_EQ(sender.sequence, 7);
  EXPECT_EQ(control::callCount("sendto"), 0u);
}

TEST_F(RtpSenderTest, AggregatesNeverExceedTheirLimit) {
  Bytes big = makeNal(0x41, 1200);
  Bytes buffer = annexB({big});
  std::vector<NalUnit> nals = scanAnnexB(buffer.data(), buffer.size());
  EXPECT_FALSE(sender.sendAggregate(nals, 1, true));
  EXPECT_FALSE(sender.sendAggregate({}, 1, true));
  EXPECT_EQ(sender.sequence, 7) << "no number used";
  EXPECT_TRUE(datagrams().empty());
}

TEST_F(RtpSenderTest, PayloadTypeIsCutToSevenBitsAndLeavesTheMarkerAlone) {
  ASSERT_TRUE(sender.open("127.0.0.1", receiver.port(), 1, 200));
  ASSERT_TRUE(send({makeNal(0x41, 10)}, false, false));
  ASSERT_TRUE(send({makeNal(0x41, 10)}, true, false));
  std::vector<Bytes> got = datagrams();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0][1], 0x48);
  EXPECT_EQ(got[1][1], 0xC8);
}

// The fault plan makes sendto fail; the sender must go on and report only total failure.
TEST_F(RtpSenderTest, AFailedFragmentDoesNotStopTheRun) {
  control::planFault({"sendto", -1, 1, 1});  // the second datagram fails
  ASSERT_TRUE(send({makeNal(0x65, 3000)}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].sequence, 7);
  EXPECT_EQ(got[1].sequence, 9) << "the failed fragment used up its number";
  EXPECT_EQ(sender.sequence, 10);
}

TEST_F(RtpSenderTest, WhenTheWholeSplitFailsTheUnitsAreTriedOnceMoreOneByOne) {
  Bytes sps = makeNal(0x67, 20);
  Bytes pps = makeNal(0x68, 4);
  Bytes slice = makeNal(0x65, 2000);
  control::failTimes("sendto", -1, 3);  // STAP-A of the sets and both fragments
  ASSERT_TRUE(send({sps, pps, slice}, true, true));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 4u);
  EXPECT_EQ(got[0].sequence, 10);
  EXPECT_EQ(got[0].payload, sps);
  EXPECT_EQ(got[1].payload, pps);
  EXPECT_FALSE(got[2].marker);
  EXPECT_TRUE(got[3].marker);
  bool ok = false;
  EXPECT_EQ(testing_support::reassembleNalUnits(got, &ok), (std::vector<Bytes>{sps, pps, slice}));
}

TEST_F(RtpSenderTest, EverySendFailingIsATotalFailure) {
  control::failFrom("sendto", -1, 1);
  EXPECT_FALSE(send({makeNal(0x67, 20), makeNal(0x65, 2000)}, true, true));
  EXPECT_EQ(sender.sequence, 7 + 3 + 3) << "split try, then the retry unit by unit";
  EXPECT_TRUE(datagrams().empty());
}

TEST_F(RtpSenderTest, AShortSendCountsAsAFailure) {
  control::failOnce("sendto", 10);
  Bytes nal = makeNal(0x41, 100);
  EXPECT_FALSE(sender.sendNalUnit(NalUnit{nal.data(), nal.size(), 1, 2}, 5, true));
  std::vector<Bytes> got = datagrams();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].size(), 10u) << "the platform really sent the short datagram";
  EXPECT_EQ(control::datagramsSent(), 1u);
}

TEST(RtpSenderLifecycle, ANewSenderHasDefaultsAndSendsNothingBeforeOpen) {
  control::reset();
  RtpSender sender;
  EXPECT_EQ(sender.payloadType, 96);
  EXPECT_EQ(sender.sequence, 0);
  EXPECT_EQ(sender.socket, INVALID_SOCKET);
  uint8_t bytes[20] = {};
  EXPECT_FALSE(sender.sendDatagram(bytes, sizeof bytes));
  EXPECT_EQ(control::callCount("sendto"), 0u);
}

TEST(RtpSenderLifecycle, ReopeningClosesTheOldSocketAndKeepsTheSequence) {
  control::reset();
  {
    RtpSender sender;
    ASSERT_TRUE(sender.open("127.0.0.1", 9, 1, 96));
    sender.sequence = 300;
    ASSERT_TRUE(sender.open("127.0.0.1", 9, 2, 97));
    EXPECT_EQ(sender.sequence, 300);
    EXPECT_EQ(sender.ssrc, 2u);
    EXPECT_EQ(control::callCount("closesocket"), 1u);
    EXPECT_EQ(control::winsockStartupCount(), 1);
    EXPECT_EQ(control::openSocketCount(), 1);
  }
  EXPECT_EQ(control::winsockStartupCount(), 0) << "every WSAStartup matched by a WSACleanup";
  EXPECT_EQ(control::openSocketCount(), 0);
}

TEST(RtpSenderLifecycle, StartupFailuresAreLoggedAndLeaveNoSocket) {
  control::reset();
  RtpSender sender;
  control::failOnce("WSAStartup", WSASYSNOTREADY);
  EXPECT_FALSE(sender.open("127.0.0.1", 9, 1, 96));
  EXPECT_EQ(sender.socket, INVALID_SOCKET);
  control::failOnce("socket", int64_t(INVALID_SOCKET));
  EXPECT_FALSE(sender.open("127.0.0.1", 9, 1, 96));
  EXPECT_EQ(sender.socket, INVALID_SOCKET);
  EXPECT_EQ(control::winsockStartupCount(), 0) << "the failed socket call gave its Winsock reference back";
  EXPECT_EQ(control::debugOutput(), (std::vector<std::string>{"[kestrane-win][error] WSAStartup failed\n",
                                                               "[kestrane-win][error] socket failed\n"}));
}

TEST(RtpSenderLifecycle, AnAddressThatDoesNotParseIsStillTried) {
  control::reset();
  RtpSender sender;
  ASSERT_TRUE(sender.open("not-an-address", 0, 1, 96));
  uint8_t bytes[20] = {};
  sender.sendDatagram(bytes, sizeof bytes);  // success or failure is the kernel's
  EXPECT_EQ(control::callCount("sendto"), 1u);
}

// Random access units through real loopback: what arrives reassembles to what was sent.
TEST_F(RtpSenderTest, RandomAccessUnitsArriveWhole) {
  std::mt19937 random(1234);
  for (int unit = 0; unit < 40; ++unit) {
    std::vector<Bytes> nals;
    bool keyFrame = unit % 10 == 0;
    if (keyFrame) {
      nals.push_back(makeNal(0x67, 10 + random() % 30, uint8_t(unit)));
      nals.push_back(makeNal(0x68, 4 + random() % 8, uint8_t(unit)));
    }
    if (random() % 3 == 0) nals.push_back(makeNal(0x06, 5 + random() % 40, uint8_t(unit)));
    int slices = 1 + int(random() % 3);
    for (int s = 0; s < slices; ++s)
      nals.push_back(makeNal(keyFrame ? 0x65 : 0x41, 1 + random() % 6000, uint8_t(unit + s)));
    uint16_t firstSequence = sender.sequence;
    uint32_t timestamp = 0xFFFFF000u + 3000u * unit;  // wraps on the way
    Bytes buffer = annexB(nals);
    ASSERT_TRUE(sender.sendAccessUnit(buffer.data(), buffer.size(), timestamp, true, keyFrame));
    std::vector<RtpPacket> got = packets();
    ASSERT_FALSE(got.empty());
    for (size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i].sequence, uint16_t(firstSequence + i));
      EXPECT_EQ(got[i].timestamp, timestamp);
      EXPECT_EQ(got[i].marker, i + 1 == got.size());
      EXPECT_EQ(got[i].ssrc, 0x11223344u);
      EXPECT_LE(got[i].payload.size(), kRtpMaxPayloadBytes);
    }
    bool ok = false;
    std::vector<Bytes> reassembled = testing_support::reassembleNalUnits(got, &ok);
    EXPECT_TRUE(ok);
    // Parameter sets may move to the front; everything else keeps its order.
    std::vector<Bytes> expected;
    for (const Bytes& nal : nals)
      if ((nal[0] & 0x1F) == 7 || (nal[0] & 0x1F) == 8) expected.push_back(nal);
    for (const Bytes& nal : nals)
      if ((nal[0] & 0x1F) != 7 && (nal[0] & 0x1F) != 8) expected.push_back(nal);
    uint64_t aggregate = 1;
    for (const Bytes& nal : nals) aggregate += 2 + nal.size();
    EXPECT_EQ(reassembled, aggregate <= 1180 ? nals : expected) << "unit " << unit;
  }
}

}  // namespace
