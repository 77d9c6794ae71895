// The frame loop's own rules, with scripted capture and encoder behind the two interfaces and the
// real scaler, RTP sender and loopback UDP around them.
#include "session/frame_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "platform/control/platform_control.h"
#include "session/native_session.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/rtp_reassembly.h"
#include "test/support/scripted_pipeline.h"
#include "test/support/udp_receiver.h"

namespace control = platform::control;
using testing_support::Bytes;
using testing_support::RtpPacket;
using testing_support::ScriptedEncoder;
using testing_support::ScriptedOutput;

namespace {

constexpr int64_t kTicksPerMs = 10000;

class FrameLoopTest : public testing_support::GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    ASSERT_TRUE(receiver.ok());
    buildSession();
  }

  // A session on the machine's first adapter, with a 64x64 scaler and a sender to the receiver.
  void buildSession() {
    session = std::make_unique<NativeSession>();
    session->options.fps = 60;
    session->captureContext = std::make_unique<D3DContext>();
    ASSERT_TRUE(session->captureContext->createOnFirstAdapter());
    session->scaler = std::make_unique<VideoScaler>();
    ASSERT_TRUE(session->scaler->init(session->captureContext.get(), 64, 64));
    session->rtp = std::make_unique<RtpSender>();
    ASSERT_TRUE(session->rtp->open("127.0.0.1", receiver.port(), 0x5eed, 96));
    useEncoder(new ScriptedEncoder("nvenc"));
    D3DContext& d3d = *session->captureContext;
    frame = testing_support::textureWithPixels(d3d.device.get(), d3d.context.get(), 64, 64,
                                               std::vector<uint32_t>(64 * 64, testing_support::bgra(200, 30, 30)));
  }

  void TearDown() override {
    state = FrameLoopState();
    frame.reset();
    session.reset();
    GpuTest::TearDown();
  }

  void useEncoder(ScriptedEncoder* scripted) {
    encoder = scripted;
    session->encoder.reset(scripted);
    session->encoderName.store(scripted->name());
  }

  bool process(int64_t timestamp) {
    return processFrame(*session, frame.get(), static_cast<uint64_t>(timestamp), pacing, state);
  }

  std::vector<RtpPacket> packets() {
    std::vector<RtpPacket> parsed;
    for (const Bytes& datagram : receiver.receiveAll(50)) {
      RtpPacket packet;
      EXPECT_TRUE(testing_support::parseRtp(datagram, &packet));
      parsed.push_back(packet);
    }
    return parsed;
  }

  uint64_t dropped() const { return session->metrics.droppedFrames.load(); }

  size_t debugLinesWith(const std::string& text) {
    std::vector<std::string> lines = control::debugOutput();
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
  }

  testing_support::UdpReceiver receiver;
  std::unique_ptr<NativeSession> session;
  ScriptedEncoder* encoder = nullptr;
  CountedRef<ID3D11Texture2D> frame;
  FramePacing pacing = FramePacing::forRate(60);
  FrameLoopState state;
};

TEST(FramePacingTest, IntervalsRoundUpAndTheLateLimitIsEightFramesButAtLeastEightMs) {
  struct Row { int32_t fps; uint64_t interval; uint32_t rtpTicks; uint64_t late; };
  for (Row row : {Row{1, 10000000, 90000, 8000}, Row{30, 333334, 3000, 266}, Row{60, 166667, 1500, 133},
                  Row{80, 125000, 1125, 100}, Row{144, 69445, 625, 55}, Row{1000, 10000, 90, 8},
                  Row{0, 10000000, 90000, 8000}, Row{-7, 10000000, 90000, 8000}}) {
    FramePacing pacing = FramePacing::forRate(row.fps);
    EXPECT_EQ(pacing.frameInterval, row.interval) << row.fps;
    EXPECT_EQ(pacing.rtpTicksPerFrame, row.rtpTicks) << row.fps;
    EXPECT_EQ(pacing.lateLimitMs, row.late) << row.fps;
  }
}

TEST_F(FrameLoopTest, FramesTooCloseToTheLastSentAreSkippedWithoutADrop) {
  int64_t t0 = 1000 * kTicksPerMs;
  ASSERT_TRUE(process(t0));
  ASSERT_TRUE(process(t0 + 5 * kTicksPerMs));
  EXPECT_EQ(encoder->encodeCalls, 1) << "5 ms after a sent frame at 60 fps is too soon";
  EXPECT_EQ(dropped(), 0u);
  ASSERT_TRUE(process(t0 + 17 * kTicksPerMs));
  EXPECT_EQ(encoder->encodeCalls, 2);
  ASSERT_TRUE(process(t0 + 17 * kTicksPerMs + int64_t(pacing.frameInterval)));
  EXPECT_EQ(encoder->encodeCalls, 3) << "exactly one interval later is not too soon";
  ASSERT_TRUE(process(0));
  EXPECT_EQ(encoder->encodeCalls, 4) << "a frame without time is never skipped";
  ASSERT_TRUE(process(t0));
  EXPECT_EQ(encoder->encodeCalls, 5) << "a time running backwards is no reason to skip";
  EXPECT_EQ(session->frameIndex, 5u);
}

// The capture times that the rate limit lets through from a source of `sourceHz` present times
// over `seconds`, at `fps`. Present times fall as a display gives them, on the tick at or after
// each refresh, with every other one `jitter` ticks late, starting with the first.
std::vector<uint64_t> admittedTimes(uint32_t sourceHz, int32_t fps, uint32_t seconds, uint64_t jitter = 0) {
  FramePacing pacing = FramePacing::forRate(fps);
  FrameLoopState state;
  std::vector<uint64_t> sent;
  uint64_t origin = 123456789;
  for (uint64_t k = 0; k < uint64_t(sourceHz) * seconds; ++k) {
    uint64_t timestamp = origin + (k * 10000000 + sourceHz - 1) / sourceHz + (k % 2 == 0 ? jitter : 0);
    if (tooSoonForRateLimit(timestamp, state, pacing)) continue;
    takeRateLimitSlot(timestamp, state, pacing);
    sent.push_back(timestamp);
  }
  return sent;
}

// The most frames sent within any one second of capture time.
size_t mostInAnySecond(const std::vector<uint64_t>& sent) {
  size_t most = 0;
  for (size_t first = 0, last = 0; last < sent.size(); ++last) {
    while (sent[last] - sent[first] >= 10000000) ++first;
    most = std::max(most, last - first + 1);
  }
  return most;
}

TEST(RateLimitTest, DeliversTheRateAskedForOrTheSourceRateWhicheverIsLess) {
  struct Case { uint32_t sourceHz; int32_t fps; uint64_t jitter; };
  for (Case c : {Case{60, 60, 0}, Case{60, 30, 0}, Case{60, 24, 0}, Case{60, 50, 0}, Case{144, 60, 0},
                 Case{120, 30, 0}, Case{60, 60, 15000}, Case{75, 60, 20000}, Case{240, 240, 0}, Case{30, 60, 0}}) {
    std::vector<uint64_t> sent = admittedTimes(c.sourceHz, c.fps, 10, c.jitter);
    double expected = 10.0 * std::min<uint32_t>(c.sourceHz, uint32_t(c.fps));
    std::string what = std::to_string(c.sourceHz) + " Hz at fps " + std::to_string(c.fps);
    EXPECT_GE(double(sent.size()), expected * 0.99) << what;
    EXPECT_LE(double(sent.size()), expected * 1.01) << what;
    // A source that jitters may put fps + 1 present times into one second; a steady one never.
    if (c.jitter == 0) {
      EXPECT_LE(mostInAnySecond(sent), size_t(c.fps)) << what;
    }
  }
}

TEST(RateLimitTest, APauseStartsTheScheduleAfreshInsteadOfLettingABurstThrough) {
  FramePacing pacing = FramePacing::forRate(60);
  FrameLoopState state;
  auto offer = [&](uint64_t timestamp) {
    if (tooSoonForRateLimit(timestamp, state, pacing)) return false;
    takeRateLimitSlot(timestamp, state, pacing);
    return true;
  };
  uint64_t t0 = 50000000;
  EXPECT_TRUE(offer(t0));
  EXPECT_TRUE(offer(t0 + 10000000)) << "a second later";
  EXPECT_FALSE(offer(t0 + 10050000)) << "5 ms after the frame that ended the pause";
  EXPECT_FALSE(offer(t0 + 10100000)) << "10 ms after it";
  EXPECT_TRUE(offer(t0 + 10000000 + pacing.frameInterval - pacing.slotTolerance));
  EXPECT_EQ(state.lastSentTimestamp, t0 + 10000000 + pacing.frameInterval - pacing.slotTolerance);
  EXPECT_TRUE(offer(0)) << "a frame without time";
  EXPECT_EQ(state.lastSentTimestamp, t0 + 10000000 + pacing.frameInterval - pacing.slotTolerance)
      << "a frame without time moves nothing";
  EXPECT_TRUE(offer(t0)) << "a time running backwards";
  EXPECT_FALSE(offer(t0 + 50000)) << "the schedule starts again at the time that ran back";
}

// Before the next slot the worker leaves the source alone, but only while the slot is at most an
// interval away on the performance counter: capture times on another clock never make it wait.
TEST(RateLimitTest, TheWorkerWaitsForTheNextSlotOnlyWhenItIsNear) {
  FramePacing pacing = FramePacing::forRate(60);
  LARGE_INTEGER counter;
  ASSERT_TRUE(QueryPerformanceCounter(&counter));
  const uint64_t now = uint64_t(counter.QuadPart);  // 10 MHz: already 100 ns ticks
  FrameLoopState state;
  EXPECT_FALSE(waitingForNextSlot(state, pacing)) << "nothing sent yet";
  takeRateLimitSlot(now, state, pacing);
  EXPECT_TRUE(waitingForNextSlot(state, pacing)) << "just sent";
  FrameLoopState old;
  takeRateLimitSlot(now - 2 * pacing.frameInterval, old, pacing);
  EXPECT_FALSE(waitingForNextSlot(old, pacing)) << "the slot has passed";
  FrameLoopState elsewhere;
  takeRateLimitSlot(now + 50000000, elsewhere, pacing);
  EXPECT_FALSE(waitingForNextSlot(elsewhere, pacing)) << "five seconds ahead: another clock";
  Sleep(20);
  EXPECT_FALSE(waitingForNextSlot(state, pacing)) << "an interval later";
}

TEST(RateLimitTest, FpsZeroPacesAtOneFrameASecond) {
  EXPECT_EQ(admittedTimes(60, 0, 10).size(), 10u);
}

TEST_F(FrameLoopTest, RtpTimestampsFollowCaptureTimeFromTheFirstFrame) {
  int64_t t0 = 5000 * kTicksPerMs;
  ASSERT_TRUE(process(t0));
  ASSERT_TRUE(process(t0 + 20 * kTicksPerMs));
  ASSERT_TRUE(process(t0 + 40 * kTicksPerMs));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].timestamp, 0u);
  EXPECT_EQ(got[1].timestamp, 1800u);
  EXPECT_EQ(got[2].timestamp, 3600u);
  for (const RtpPacket& packet : got) EXPECT_TRUE(packet.marker);
  EXPECT_EQ(got[1].sequence, uint16_t(got[0].sequence + 1));
  EXPECT_EQ(session->firstFrameTimestamp, uint64_t(t0));
}

TEST_F(FrameLoopTest, WithoutAFirstTimestampEveryFrameRunsOnTheIndexClock) {
  ASSERT_TRUE(process(0));
  ASSERT_TRUE(process(77 * kTicksPerMs));
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].timestamp, 0u);
  EXPECT_EQ(got[1].timestamp, 1500u) << "rtpTicksPerFrame * frameIndex, though the frame had a time";
  EXPECT_EQ(session->firstFrameTimestamp, 0u);
}

TEST_F(FrameLoopTest, AFrameFarBehindItsDueTimeIsDroppedBeforeAnyGpuWork) {
  const int64_t t0 = 5000 * kTicksPerMs;
  ASSERT_TRUE(process(t0));
  // Its capture time says it was due a second ago.
  session->firstFrameTick -= 1000;
  ASSERT_TRUE(process(t0 + 20 * kTicksPerMs));
  EXPECT_EQ(encoder->encodeCalls, 1);
  EXPECT_EQ(dropped(), 1u);
  EXPECT_EQ(packets().size(), 1u);
}

TEST_F(FrameLoopTest, TheIndexClockStartsAgainAtTheFirstFrameAfterAStillPeriod) {
  ASSERT_TRUE(process(0));
  // A still second: nothing was sent, so the index clock stands where it was.
  session->firstFrameTick -= 1000;
  ASSERT_TRUE(process(0));
  ASSERT_TRUE(process(0));
  EXPECT_EQ(dropped(), 0u);
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_GE(got[1].timestamp, 90000u) << "the RTP clock moved on by the still second";
  EXPECT_EQ(got[2].timestamp, got[1].timestamp + 1500) << "and runs on from there";
}

TEST_F(FrameLoopTest, AnEncoderSlowerThanTheLateLimitCostsTheFrameButFillsTheCache) {
  encoder->script.push_back({true, testing_support::concat({testing_support::spsPps(), testing_support::idrSlice()}), 150});
  ASSERT_TRUE(process(0));
  EXPECT_EQ(dropped(), 1u);
  EXPECT_TRUE(packets().empty());
  EXPECT_FALSE(state.parameterSets.sps.empty());
  EXPECT_FALSE(state.parameterSets.pps.empty());
  EXPECT_EQ(session->frameIndex, 0u);
}

TEST_F(FrameLoopTest, SlicesGetTheCachedParameterSetsInFront) {
  encoder->script.push_back({true, testing_support::concat({testing_support::spsPps(), testing_support::idrSlice()})});
  encoder->script.push_back({true, testing_support::idrSlice()});
  ASSERT_TRUE(process(0));
  ASSERT_TRUE(process(0));
  std::vector<RtpPacket> got = packets();
  bool ok = false;
  std::vector<Bytes> nals = testing_support::reassembleNalUnits(got, &ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(nals.size(), 6u);
  EXPECT_EQ(nals[3][0] & 0x1F, 7) << "the second IDR picture went out behind SPS and PPS";
  EXPECT_EQ(nals[4][0] & 0x1F, 8);
  EXPECT_EQ(nals[5][0] & 0x1F, 5);
  EXPECT_DOUBLE_EQ(session->metrics.avgFrameBytes.load(), 0.0) << "no window has closed yet";
}

TEST_F(FrameLoopTest, EncodeFailuresAreDropsLoggedAtTheFirstAndEveryThreeHundredth) {
  for (int i = 0; i < 301; ++i) encoder->script.push_back({false, {}});
  for (int i = 0; i < 301; ++i) ASSERT_TRUE(process(0));
  EXPECT_EQ(dropped(), 301u);
  EXPECT_EQ(debugLinesWith("H264 encode failed while capture continues"), 2u);
  EXPECT_TRUE(packets().empty());
  EXPECT_EQ(state.encodeFailureCount, 301u);
  ASSERT_TRUE(process(0));
  EXPECT_EQ(state.encodeFailureCount, 0u) << "output restarts the count";
}

TEST_F(FrameLoopTest, AnEncoderWithNothingYetCostsNothing) {
  encoder->script.push_back({true, {}});
  ASSERT_TRUE(process(10 * kTicksPerMs));
  EXPECT_EQ(dropped(), 0u);
  EXPECT_EQ(session->frameIndex, 0u);
  EXPECT_EQ(state.lastSentTimestamp, 0u);
  EXPECT_TRUE(packets().empty());
}

TEST_F(FrameLoopTest, OutputWithoutASliceIsSentOnlyOnceBothParameterSetsAreCached) {
  Bytes seiOnly{0, 0, 0, 1, 0x06, 0x05, 0x01, 0x80};
  encoder->script.push_back({true, seiOnly});
  encoder->script.push_back({true, testing_support::spsPps()});
  ASSERT_TRUE(process(0));
  EXPECT_TRUE(packets().empty()) << "nothing to decode it with yet";
  ASSERT_TRUE(process(0));
  std::vector<RtpPacket> got = packets();
  ASSERT_FALSE(got.empty());
  EXPECT_FALSE(got.back().marker) << "parameter sets alone end no picture";
  EXPECT_EQ(session->frameIndex, 1u);
  EXPECT_EQ(dropped(), 0u);
  EXPECT_EQ(debugLinesWith("H264 output from nvenc has no slice NAL (8 bytes)"), 1u);
}

TEST_F(FrameLoopTest, OutputWithoutASliceNeedsBothParameterSetsNotEitherOne) {
  Bytes spsOnly{0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x1F, 0xDA};
  Bytes ppsOnly{0, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80};
  encoder->script.push_back({true, spsOnly});
  encoder->script.push_back({true, ppsOnly});
  ASSERT_TRUE(process(0));
  EXPECT_TRUE(packets().empty()) << "only the SPS is cached";
  ASSERT_TRUE(process(0));
  EXPECT_EQ(packets().size(), 1u) << "the PPS completes the pair";

  // And the other way round, on a fresh cache.
  state = FrameLoopState();
  encoder->script.push_back({true, ppsOnly});
  ASSERT_TRUE(process(0));
  EXPECT_TRUE(packets().empty()) << "only the PPS is cached";
}

TEST_F(FrameLoopTest, FiveOutputsWithoutASliceMakeNvencForceAKeyFrame) {
  for (int i = 0; i < 5; ++i) encoder->script.push_back({true, testing_support::spsPps()});
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(process(0));
  EXPECT_EQ(encoder->keyFrameRequests, 1);
  EXPECT_EQ(state.noSliceCount, 0u);
  EXPECT_EQ(debugLinesWith("has no slice NAL"), 1u);
}

TEST_F(FrameLoopTest, MediaFoundationWithoutSlicesOnAnotherVendorKeepsAskingForNvenc) {
  session.reset();
  control::MachineDescription machine;
  machine.adapters = {testing_support::adapter(0x8086, 0x9a49, 1)};
  control::setMachine(machine);
  buildSession();
  useEncoder(new ScriptedEncoder("mf-h264", true));
  for (int i = 0; i < 7; ++i) encoder->script.push_back({true, testing_support::spsPps()});
  for (int i = 0; i < 7; ++i) ASSERT_TRUE(process(0));
  EXPECT_EQ(debugLinesWith("NVENC fallback unavailable on non-NVIDIA encode device"), 3u);
  EXPECT_EQ(state.noSliceCount, 7u);
  EXPECT_STREQ(session->currentEncoderName(), "mf-h264");
  EXPECT_EQ(session->encoder.get(), encoder) << "the Media Foundation encoder stays";
}

TEST_F(FrameLoopTest, ASwitchToNvencEmptiesTheReadbackTextureAndTheCachedParameterSets) {
  useEncoder(new ScriptedEncoder("mf-h264", false));
  for (int i = 0; i < 5; ++i) encoder->script.push_back({true, testing_support::spsPps()});
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(process(0));
  ASSERT_TRUE(state.readbackTexture) << "Media Foundation without GPU input read a CPU copy";
  ASSERT_FALSE(state.parameterSets.sps.empty());
  encoder = nullptr;  // the fifth output without a slice replaces it by NVENC
  ASSERT_TRUE(process(0));
  ASSERT_STREQ(session->currentEncoderName(), "nvenc");
  EXPECT_FALSE(state.readbackTexture);
  EXPECT_TRUE(state.parameterSets.sps.empty());
  EXPECT_TRUE(state.parameterSets.pps.empty());
  EXPECT_EQ(state.noSliceCount, 0u);
}

TEST_F(FrameLoopTest, MediaFoundationWithoutGpuInputReadsACpuCopy) {
  useEncoder(new ScriptedEncoder("mf-h264", false));
  ASSERT_TRUE(process(0));
  EXPECT_EQ(encoder->lastInput.Usage, D3D11_USAGE_STAGING);
  EXPECT_EQ(encoder->lastInput.CPUAccessFlags, UINT(D3D11_CPU_ACCESS_READ));
  EXPECT_EQ(encoder->lastInput.Format, DXGI_FORMAT_NV12);
  useEncoder(new ScriptedEncoder("mf-h264", true));
  ASSERT_TRUE(process(0));
  EXPECT_EQ(encoder->lastInput.Usage, D3D11_USAGE_DEFAULT);
}

TEST_F(FrameLoopTest, AFailedSendIsADropThatCountsAsEncodedAndMovesNoSchedule) {
  const int64_t t0 = 5000 * kTicksPerMs;
  ASSERT_TRUE(process(t0));
  ASSERT_EQ(state.lastSentTimestamp, uint64_t(t0));
  // An encode window a second old: the next access unit closes it.
  session->metrics.encodeWindowStart.store(GetTickCount64() - 1000);
  session->metrics.encodeCount.store(0);
  control::failOnce("sendto", -1);
  ASSERT_TRUE(process(t0 + 20 * kTicksPerMs));
  EXPECT_EQ(dropped(), 1u);
  EXPECT_EQ(session->frameIndex, 1u);
  EXPECT_GT(session->metrics.encodeFps.load(), 0.0) << "it was encoded, whatever became of it";
  EXPECT_EQ(state.lastSentTimestamp, uint64_t(t0)) << "the rate limit measures from what was sent";
  ASSERT_TRUE(process(t0 + 40 * kTicksPerMs));
  EXPECT_EQ(session->frameIndex, 2u);
}

TEST_F(FrameLoopTest, AnEmptyEncoderSlotDropsEveryFrame) {
  session->encoder.reset();
  encoder = nullptr;
  ASSERT_TRUE(process(0));
  EXPECT_EQ(dropped(), 1u);
}

// The first frame of a session may reach the loop long after its capture (a whole-screen grab, a
// busy moment). A later frame that comes sooner after its capture must not wait for the first
// one's delay: the origin moves back to it, and it goes out at once.
TEST_F(FrameLoopTest, AFrameAheadOfTheScheduleMovesTheOriginBackInsteadOfWaiting) {
  int64_t t0 = 9000 * kTicksPerMs;
  ASSERT_TRUE(process(t0));
  uint64_t sleepsBefore = control::callCount("Sleep");
  ASSERT_TRUE(process(t0 + 300 * kTicksPerMs)) << "captured 300 ms after the first, here at once";
  ASSERT_TRUE(process(t0 + 317 * kTicksPerMs));
  EXPECT_EQ(control::callCount("Sleep"), sleepsBefore) << "no pacing wait";
  std::vector<RtpPacket> got = packets();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[1].timestamp, 27000u) << "RTP time still follows capture time";
  EXPECT_EQ(got[2].timestamp, 28530u);
  EXPECT_EQ(dropped(), 0u);
}

TEST_F(FrameLoopTest, StopDuringThePacingWaitSendsNothing) {
  ASSERT_TRUE(process(0));
  packets();
  // A frame whose time is ten seconds away on the index clock waits for it.
  session->frameIndex = 600;
  std::thread stopper([this] {
    Sleep(50);
    session->stopRequested.store(true);
  });
  ULONGLONG before = GetTickCount64();
  EXPECT_FALSE(process(0));
  stopper.join();
  EXPECT_LT(GetTickCount64() - before, 1000u);
  EXPECT_TRUE(packets().empty());
}

// Each call reads the tick count once; the fault plan answers it.
void sendAt(SessionMetrics& metrics, uint64_t tick, uint64_t bytes) {
  control::failOnce("GetTickCount64", int64_t(tick));
  metrics.recordSent(bytes);
}

TEST(SessionMetricsTest, TheBitrateIsTheWindowsBytesInBitsOverItsLength) {
  control::reset();
  SessionMetrics metrics;
  sendAt(metrics, 10000, 1000);  // opens the window and counts in it
  sendAt(metrics, 10400, 3000);
  sendAt(metrics, 10800, 5000);
  EXPECT_DOUBLE_EQ(metrics.bitrate.load(), 0.0) << "no window has closed";
  sendAt(metrics, 12000, 2000);
  EXPECT_DOUBLE_EQ(metrics.bitrate.load(), 11000.0 * 8 * 1000 / 2000);
  sendAt(metrics, 12500, 700);
  sendAt(metrics, 13250, 300);
  EXPECT_DOUBLE_EQ(metrics.bitrate.load(), 1000.0 * 8 * 1000 / 1250);
  control::reset();
}

TEST_F(FrameLoopTest, TheMeanFrameSizeCountsOutputsWithASliceOnly) {
  Bytes seiOnly{0, 0, 0, 1, 0x06, 0x05, 0x01, 0x80};
  Bytes first = testing_support::concat({testing_support::spsPps(), testing_support::idrSlice()});
  encoder->script.push_back({true, first});
  encoder->script.push_back({true, seiOnly});
  encoder->script.push_back({true, testing_support::pSlice()});
  ASSERT_TRUE(process(0));
  ASSERT_TRUE(process(0));
  EXPECT_EQ(packets().size(), 2u) << "the output without a slice was sent too";
  session->metrics.frameSizeWindowStart.store(GetTickCount64() - 1000);
  ASSERT_TRUE(process(0));
  // The P slice went out with the cached parameter sets in front.
  double third = double(testing_support::spsPps().size() + testing_support::pSlice().size());
  EXPECT_DOUBLE_EQ(session->metrics.avgFrameBytes.load(), (double(first.size()) + third) / 2);
}

TEST(SessionMetricsTest, RatesCloseAWindowOnlyWhenItIsASecondOld) {
  std::atomic<uint64_t> start{0}, count{0};
  AtomicDouble rate;
  for (int i = 0; i <= 30; ++i) updateRate(10000 + uint64_t(i) * 1000 / 30, start, count, rate);
  EXPECT_DOUBLE_EQ(rate.load(), 31.0) << "the opening event counts in the first window";
  updateRate(11999, start, count, rate);
  EXPECT_DOUBLE_EQ(rate.load(), 31.0) << "999 ms closes nothing";
  updateRate(12000, start, count, rate);
  EXPECT_DOUBLE_EQ(rate.load(), 2.0);
  updateRate(14500, start, count, rate);
  EXPECT_DOUBLE_EQ(rate.load(), 0.4);
}

}  // namespace
