// The monitor capture source through its operations, on the synthetic desktop, with the platform's
// fault plan for the failure paths.
#include "capture/dxgi_duplication_capture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "gpu/d3d_context.h"
#include "platform/control/clock_control.h"
#include "platform/control/desktop_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "session/start_options.h"
#include "support/failure.h"
#include "test/support/duplication_helpers.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr uint32_t kWidth = 128;
constexpr uint32_t kHeight = 72;
constexpr uint32_t kBlue = bgra(10, 40, 220);
constexpr uint32_t kGreen = bgra(20, 200, 60);

std::string errorLine(const std::string& text) { return "[kestrane-win][error] " + text + "\n"; }

StartOptions screenOptions() {
  StartOptions options;
  options.captureKind = CaptureKind::Screen;
  return options;
}

class MonitorCaptureTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    control::setMachine(smallDesktop(kWidth, kHeight, 30));
    ASSERT_TRUE(d3d.createForGlobalOutput(0));
    control::clearDebugOutput();
    control::resetCallCounts();
  }
  void TearDown() override {
    slot.reset();
    capture.reset();
    d3d.context.reset();
    d3d.device.reset();
    d3d.adapter.reset();
    GpuTest::TearDown();
  }

  // One pass of the frame loop's hand-over: an empty slot, the acquire, and the release.
  bool handOver() {
    slot.reset();
    timestamp = 0;
    bool got = capture->acquireFrame(slot, timestamp);
    if (got) capture->releaseFrame();
    return got;
  }

  bool open(uint32_t fps = 30) {
    capture = std::make_unique<DxgiDuplicationCapture>();
    if (!capture->init(&d3d, screenOptions())) return false;
    capture->setFrameRate(fps);
    return true;
  }

  std::vector<uint32_t> pixels() { return readPixels(d3d.device.get(), d3d.context.get(), slot.get()); }

  D3D11_TEXTURE2D_DESC slotDesc() {
    D3D11_TEXTURE2D_DESC desc{};
    slot->GetDesc(&desc);
    return desc;
  }

  D3DContext d3d;
  std::unique_ptr<DxgiDuplicationCapture> capture;
  CountedRef<ID3D11Texture2D> slot;
  int64_t timestamp = 0;
};

TEST_F(MonitorCaptureTest, TheFirstFrameIsTheDesktopAtOnceInAPrivateGpuTextureThenNothingWhileItStandsStill) {
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open(30));
  EXPECT_TRUE(control::debugOutput().empty());
  EXPECT_TRUE(threadLastFailure.empty());

  // Still from the start: only the source's first frame can come, and it comes without a wait.
  double waited = millisecondsOf([&] { EXPECT_TRUE(handOver()); });
  ASSERT_TRUE(slot);
  EXPECT_LT(waited, 100);
  EXPECT_EQ(timestamp, control::latestPresentTime(0));
  EXPECT_NE(timestamp, 0);
  D3D11_TEXTURE2D_DESC desc = slotDesc();
  EXPECT_EQ(desc.Width, kWidth);
  EXPECT_EQ(desc.Height, kHeight);
  EXPECT_EQ(desc.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
  EXPECT_EQ(desc.Usage, D3D11_USAGE_DEFAULT);
  EXPECT_EQ(desc.CPUAccessFlags, 0u);
  EXPECT_EQ(desc.BindFlags, 0u);
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kBlue));
  ID3D11Texture2D* first = slot.get();

  // Still: each acquire waits its half frame (17 ms at 30 fps) inside one platform call and gives
  // nothing; the caller's slot and timestamp stay as they were.
  for (int i = 0; i < 3; ++i) {
    CountedRef<ID3D11Texture2D> kept = slot;
    timestamp = 1234;
    waited = millisecondsOf([&] { EXPECT_FALSE(capture->acquireFrame(slot, timestamp)); });
    EXPECT_GE(waited, 15);
    EXPECT_LT(waited, 200);
    EXPECT_EQ(slot.get(), kept.get());
    EXPECT_EQ(timestamp, 1234);
  }
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::AcquireNextFrame"), 4u);

  // A change comes as the next frame, in the same texture.
  control::fillOutput(0, kGreen);
  ASSERT_TRUE(handOver());
  EXPECT_EQ(slot.get(), first);
  EXPECT_EQ(timestamp, control::latestPresentTime(0));
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kGreen));
}

TEST_F(MonitorCaptureTest, AnAnimatedDesktopGivesItsFramesWithRisingPresentTimes) {
  ASSERT_TRUE(open(60));
  ASSERT_TRUE(handOver());
  std::vector<uint32_t> image = pixels();
  uint32_t frame = control::frameIndexInCells(image.data(), kWidth);
  for (uint32_t y = 0; y < kHeight; y += 5)
    for (uint32_t x = 0; x < kWidth; x += 3)
      ASSERT_EQ(image[y * kWidth + x], control::syntheticPixel(frame, kWidth, kHeight, x, y)) << x << "," << y;
  int64_t previous = timestamp;
  int frames = 0;
  for (int pass = 0; pass < 200 && frames < 3; ++pass) {
    if (!handOver()) continue;
    ++frames;
    EXPECT_GT(timestamp, previous);
    previous = timestamp;
    image = pixels();
    uint32_t next = control::frameIndexInCells(image.data(), kWidth);
    EXPECT_GT(next, frame);
    frame = next;
  }
  EXPECT_EQ(frames, 3);
}

// The present time comes in performance-counter ticks; the frame loop schedules in 100 ns ticks.
TEST_F(MonitorCaptureTest, PresentTimesAreIn100nsTicksWhateverTheCounterRate) {
  struct Clock {
    int64_t frequency;
    int64_t counter;
  };
  // The old 3.579545 MHz timer far into its range, and a fast counter.
  for (Clock clock : {Clock{3579545, 3000000000000000000}, Clock{2400000000, 9000000000000000000}}) {
    control::setPerformanceCounter(clock.frequency, clock.counter);
    control::fillOutput(0, kBlue);  // still, so that the latest image is the one acquired
    ASSERT_TRUE(open());
    ASSERT_TRUE(handOver());
    int64_t counter = control::latestPresentTime(0);
    ASSERT_NE(counter, 0);
    EXPECT_EQ(timestamp, int64_t((unsigned __int128)uint64_t(counter) * 10000000u / uint64_t(clock.frequency)))
        << clock.frequency;
  }
  control::resetPerformanceCounter();
}

TEST_F(MonitorCaptureTest, APointerOnlyUpdateGivesTheImageAgainWithTimestampZero) {
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open());
  ASSERT_TRUE(handOver());
  ASSERT_TRUE(control::movePointer(0, 5, 6));
  ASSERT_TRUE(handOver());
  EXPECT_EQ(timestamp, 0);
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kBlue));
}

TEST_F(MonitorCaptureTest, TwoAcquiresWithoutAReleaseGiveTheFirstFrameBackBeforeWaiting) {
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open());
  ASSERT_TRUE(capture->acquireFrame(slot, timestamp));
  control::fillOutput(0, kGreen);
  ASSERT_TRUE(capture->acquireFrame(slot, timestamp));
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::ReleaseFrame"), 1u);
  capture->releaseFrame();
  capture->releaseFrame();  // nothing held: nothing to give back
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::ReleaseFrame"), 2u);
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kGreen));
}

TEST_F(MonitorCaptureTest, AModeChangeReopensTheDuplicationOnceAndTheFramesComeAtTheNewSize) {
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open());
  ASSERT_TRUE(handOver());
  ID3D11Texture2D* before = slot.get();

  ASSERT_TRUE(control::setOutputMode(0, 96, 64));
  control::fillOutput(0, kGreen);
  uint64_t opened = control::callCount("IDXGIOutput1::DuplicateOutput");
  EXPECT_FALSE(handOver());  // the loss, and the re-opening right away
  EXPECT_EQ(control::callCount("IDXGIOutput1::DuplicateOutput"), opened + 1);
  ASSERT_TRUE(handOver());
  EXPECT_NE(slot.get(), before);
  EXPECT_EQ(slotDesc().Width, 96u);
  EXPECT_EQ(slotDesc().Height, 64u);
  EXPECT_EQ(pixels(), std::vector<uint32_t>(96 * 64, kGreen));

  // Back to the first size: a re-opening at a size the texture once had still gets new pixels.
  ASSERT_TRUE(control::setOutputMode(0, kWidth, kHeight));
  control::fillOutput(0, kBlue);
  EXPECT_FALSE(handOver());
  ASSERT_TRUE(handOver());
  EXPECT_EQ(slotDesc().Width, kWidth);
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kBlue));
  EXPECT_TRUE(control::debugOutput().empty());
}

TEST_F(MonitorCaptureTest, AFailedReopeningLeavesTheSourceDeadForGood) {
  ASSERT_TRUE(open());
  ASSERT_TRUE(handOver());
  control::switchDesktop();
  control::failOnce("IDXGIOutput1::DuplicateOutput", E_ACCESSDENIED);
  EXPECT_FALSE(handOver());
  EXPECT_EQ(threadLastFailure, "DuplicateOutput failed (hr=0x80070005)");
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{errorLine("DuplicateOutput failed (hr=0x80070005)")});

  // Dead: no platform call at all, however often it is asked, and no second attempt.
  control::resetCallCounts();
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(handOver());
  EXPECT_EQ(control::callCount("IDXGIOutput1::DuplicateOutput"), 0u);
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::AcquireNextFrame"), 0u);
  EXPECT_FALSE(slot);
  EXPECT_EQ(timestamp, 0);
}

// The output itself gone: the re-opening fails before it reaches DuplicateOutput, and the lost
// duplication is not asked again.
TEST_F(MonitorCaptureTest, AReopeningThatFailsBeforeDuplicateOutputLeavesTheSourceDeadToo) {
  for (const char* call : {"IDXGIDevice::GetAdapter", "IDXGIAdapter::EnumOutputs", "QueryInterface(IDXGIOutput1)"}) {
    SCOPED_TRACE(call);
    ASSERT_TRUE(open());
    ASSERT_TRUE(handOver());
    control::switchDesktop();
    control::failOnce(call, DXGI_ERROR_NOT_FOUND);
    EXPECT_FALSE(handOver());
    control::resetCallCounts();
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(handOver());
    EXPECT_EQ(control::callCount("IDXGIOutputDuplication::AcquireNextFrame"), 0u);
    EXPECT_EQ(control::callCount("IDXGIOutput1::DuplicateOutput"), 0u);
    capture.reset();
  }
}

TEST_F(MonitorCaptureTest, InitFailuresLogTheirStepAndOnlyDuplicateOutputLeavesItsTextForTheUser) {
  struct Case {
    const char* call;
    HRESULT hr;
    std::string line;
    std::string lastFailure;
  };
  const std::vector<Case> cases = {
      {"QueryInterface(IDXGIDevice)", E_NOINTERFACE, "QueryInterface IDXGIDevice failed", ""},
      {"IDXGIDevice::GetAdapter", E_FAIL, "GetAdapter failed", ""},
      {"IDXGIAdapter::EnumOutputs", DXGI_ERROR_NOT_FOUND, "EnumOutputs failed", ""},
      {"QueryInterface(IDXGIOutput1)", E_NOINTERFACE, "QueryInterface IDXGIOutput1 failed", ""},
      {"IDXGIOutput1::DuplicateOutput", DXGI_ERROR_NOT_CURRENTLY_AVAILABLE,
       "DuplicateOutput failed (hr=0x887a0022)", "DuplicateOutput failed (hr=0x887a0022)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.call);
    control::clearDebugOutput();
    threadLastFailure.clear();
    control::failOnce(c.call, c.hr);
    EXPECT_FALSE(open());
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{errorLine(c.line)});
    EXPECT_EQ(threadLastFailure, c.lastFailure);
    EXPECT_FALSE(capture->acquireFrame(slot, timestamp));
    capture.reset();
  }

  control::clearDebugOutput();
  control::resetCallCounts();
  capture = std::make_unique<DxgiDuplicationCapture>();
  StartOptions window = screenOptions();
  window.captureKind = CaptureKind::Window;
  EXPECT_FALSE(capture->init(&d3d, window));
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{errorLine("DXGI capture requires monitor target")});
  EXPECT_EQ(control::callCount("IDXGIOutput1::DuplicateOutput"), 0u);
}

TEST_F(MonitorCaptureTest, AFrameThatCantBeCopiedIsGivenBackAndTheNextOneComesNormally) {
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open());
  control::failOnce("QueryInterface(ID3D11Texture2D)", E_NOINTERFACE);
  EXPECT_FALSE(handOver());
  EXPECT_TRUE(control::debugOutput().empty());
  control::movePointer(0, 1, 1);
  control::failOnce("ID3D11Device::CreateTexture2D", E_OUTOFMEMORY);
  EXPECT_FALSE(handOver());
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{errorLine("CreateTexture2D staging failed")});
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::ReleaseFrame"), 2u);

  // Any other failure of the acquire costs only that call.
  control::failOnce("IDXGIOutputDuplication::AcquireNextFrame", E_FAIL);
  EXPECT_FALSE(handOver());
  control::movePointer(0, 2, 2);
  ASSERT_TRUE(handOver());
  EXPECT_EQ(pixels(), std::vector<uint32_t>(kWidth * kHeight, kBlue));
}

TEST_F(MonitorCaptureTest, TheWaitIsHalfTheFrameTimeRoundedUpFirstAndNeverBelowOneMillisecond) {
  const std::vector<std::pair<uint32_t, uint32_t>> table = {
      {0, 500}, {1, 500}, {15, 33}, {30, 17}, {60, 8}, {80, 6}, {120, 4}, {240, 2}, {1000, 1}, {5000, 1},
      {0xFFFFFFFFu, 1}};
  for (auto [fps, ms] : table) EXPECT_EQ(DxgiDuplicationCapture::acquireTimeoutFor(fps), ms) << fps;

  // And setFrameRate's wait is what AcquireNextFrame really waits on a still desktop.
  control::fillOutput(0, kBlue);
  ASSERT_TRUE(open(10));
  ASSERT_TRUE(handOver());
  double waited = millisecondsOf([&] { EXPECT_FALSE(handOver()); });
  EXPECT_GE(waited, 48);
  EXPECT_LT(waited, 250);
  capture->setFrameRate(1000);
  waited = millisecondsOf([&] { EXPECT_FALSE(handOver()); });
  EXPECT_LT(waited, 40);
}

TEST_F(MonitorCaptureTest, ManyOpenCaptureDeleteCyclesLeaveNothingBehind) {
  for (int cycle = 0; cycle < 25; ++cycle) {
    ASSERT_TRUE(open(60));
    ASSERT_TRUE(handOver());
    // Now and then the source goes while it may still hold a frame of the duplication.
    if (cycle % 3 == 0) capture->acquireFrame(slot, timestamp);
    slot.reset();
    capture.reset();
  }
  EXPECT_EQ(control::liveObjectCount("IDXGIOutputDuplication"), 0);
  // Deleting a source before init, or after a failed one, is fine too.
  capture = std::make_unique<DxgiDuplicationCapture>();
  EXPECT_FALSE(capture->acquireFrame(slot, timestamp));
  capture->releaseFrame();
  capture.reset();
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::AcquireNextFrame"), 25u + 9u);
}

}  // namespace
