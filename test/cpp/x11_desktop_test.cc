// Monitor capture of a real X screen: a private Xvfb, drawn on with Xlib in known colours, captured
// through the monitor source and Desktop Duplication and compared pixel for pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include "capture/dxgi_duplication_capture.h"
#include "gpu/d3d_context.h"
#include "platform/control/desktop_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "session/start_options.h"
#include "test/support/duplication_helpers.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/x_server.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 200;

// What the screen should show: `background` with a `box` of another colour.
std::vector<uint32_t> expectedScreen(uint32_t background, uint32_t box, int bx, int by, int bw, int bh) {
  std::vector<uint32_t> pixels(kWidth * kHeight, background);
  for (int y = by; y < by + bh; ++y)
    for (int x = bx; x < bx + bw; ++x) pixels[size_t(y) * kWidth + x] = box;
  return pixels;
}

class X11DesktopTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    if (!XvfbServer::installed()) GTEST_SKIP() << "Xvfb is not installed";
    server = std::make_unique<XvfbServer>(kWidth, kHeight);
    ASSERT_TRUE(server->running());
    painter = std::make_unique<XPainter>(server->name());
    ASSERT_TRUE(painter->open());
    control::MachineDescription machine = smallDesktop(kWidth, kHeight);
    machine.display = server->name();
    control::setMachine(machine);
  }
  void TearDown() override {
    painter.reset();
    server.reset();
    GpuTest::TearDown();
  }

  // A device on output 0 and a monitor source opened on it at `fps`.
  void startCapture(D3DContext& d3d, DxgiDuplicationCapture& capture, uint32_t fps = 60) {
    ASSERT_TRUE(d3d.createForGlobalOutput(0));
    StartOptions options;
    options.captureKind = CaptureKind::Screen;
    ASSERT_TRUE(capture.init(&d3d, options));
    capture.setFrameRate(fps);
  }

  std::unique_ptr<XvfbServer> server;
  std::unique_ptr<XPainter> painter;
};

TEST_F(X11DesktopTest, TheMonitorSourceCapturesTheScreensPixelsAndOnlyWhenTheyChange) {
  painter->fill(bgra(30, 60, 90), 0, 0, kWidth, kHeight);
  painter->fill(bgra(250, 128, 0), 10, 20, 30, 40);
  D3DContext d3d;
  {
    DxgiDuplicationCapture capture;
    ASSERT_NO_FATAL_FAILURE(startCapture(d3d, capture));

    CountedRef<ID3D11Texture2D> slot;
    int64_t timestamp = 0;
    ASSERT_TRUE(capture.acquireFrame(slot, timestamp));
    capture.releaseFrame();
    EXPECT_NE(timestamp, 0);
    EXPECT_EQ(readPixels(d3d.device.get(), d3d.context.get(), slot.get()),
              expectedScreen(bgra(30, 60, 90), bgra(250, 128, 0), 10, 20, 30, 40));

    // Nothing drawn: no frame, each call after its real wait.
    for (int i = 0; i < 3; ++i) {
      double waited = millisecondsOf([&] { EXPECT_FALSE(capture.acquireFrame(slot, timestamp)); });
      EXPECT_GE(waited, 7);
    }

    // The real pointer moving is an update without a new image.
    painter->warpPointer(77, 88);
    timestamp = 99;
    ASSERT_TRUE(capture.acquireFrame(slot, timestamp));
    capture.releaseFrame();
    EXPECT_EQ(timestamp, 0);
    EXPECT_FALSE(capture.acquireFrame(slot, timestamp));

    int64_t before = control::latestPresentTime(0);
    painter->fill(bgra(0, 200, 100), 100, 50, 60, 70);
    bool got = false;
    for (int pass = 0; pass < 100 && !got; ++pass) got = capture.acquireFrame(slot, timestamp);
    ASSERT_TRUE(got);
    capture.releaseFrame();
    EXPECT_GT(timestamp, before);
    EXPECT_EQ(timestamp, control::latestPresentTime(0));
    std::vector<uint32_t> pixels = readPixels(d3d.device.get(), d3d.context.get(), slot.get());
    EXPECT_EQ(pixels[size_t(60) * kWidth + 120], bgra(0, 200, 100));
    EXPECT_EQ(pixels[size_t(25) * kWidth + 15], bgra(250, 128, 0));
    EXPECT_EQ(pixels[size_t(150) * kWidth + 300], bgra(30, 60, 90));
  }
}

TEST_F(X11DesktopTest, TheFirstFrameShowsARootBackgroundSetBeforeTheCaptureStarted) {
  // The machine says its output is larger than the X screen: the screen's own size wins.
  control::MachineDescription machine = smallDesktop(kWidth * 2 + 40, kHeight * 2 + 40);
  machine.display = server->name();
  control::setMachine(machine);
  painter->setBackground(bgra(0x30, 0xB0, 0x50));

  D3DContext d3d;
  DxgiDuplicationCapture capture;
  ASSERT_NO_FATAL_FAILURE(startCapture(d3d, capture));
  CountedRef<ID3D11Texture2D> slot;
  int64_t timestamp = 0;
  ASSERT_TRUE(capture.acquireFrame(slot, timestamp));
  capture.releaseFrame();
  D3D11_TEXTURE2D_DESC desc{};
  slot->GetDesc(&desc);
  EXPECT_EQ(desc.Width, kWidth);
  EXPECT_EQ(desc.Height, kHeight);
  EXPECT_EQ(readPixels(d3d.device.get(), d3d.context.get(), slot.get()),
            std::vector<uint32_t>(size_t(kWidth) * kHeight, bgra(0x30, 0xB0, 0x50)));
}

TEST_F(X11DesktopTest, AModeSetThroughTheControlInterfaceReopensTheCaptureAtThatSizeAndXErrorsAreSurvived) {
  painter->fill(bgra(90, 30, 60), 0, 0, kWidth, kHeight);
  D3DContext d3d;
  DxgiDuplicationCapture capture;
  ASSERT_NO_FATAL_FAILURE(startCapture(d3d, capture));
  CountedRef<ID3D11Texture2D> slot;
  int64_t timestamp = 0;
  ASSERT_TRUE(capture.acquireFrame(slot, timestamp));
  capture.releaseFrame();

  // The platform's error handler stands for the whole process once a duplication has opened.
  painter->provokeError();

  // Xvfb can't change modes, so the mode comes from the control interface; past the screen's
  // edge the frame is black.
  ASSERT_TRUE(control::setOutputMode(0, kWidth + 16, 100));
  EXPECT_FALSE(capture.acquireFrame(slot, timestamp));
  ASSERT_TRUE(capture.acquireFrame(slot, timestamp));
  capture.releaseFrame();
  D3D11_TEXTURE2D_DESC desc{};
  slot->GetDesc(&desc);
  EXPECT_EQ(desc.Width, kWidth + 16);
  EXPECT_EQ(desc.Height, 100u);
  std::vector<uint32_t> pixels = readPixels(d3d.device.get(), d3d.context.get(), slot.get());
  EXPECT_EQ(pixels[size_t(50) * desc.Width + 10], bgra(90, 30, 60));
  EXPECT_EQ(pixels[size_t(50) * desc.Width + kWidth + 3], bgra(0, 0, 0));
}

TEST_F(X11DesktopTest, ALostXServerLosesTheDuplicationAndLeavesTheProcessRunning) {
  painter->fill(bgra(1, 2, 3), 0, 0, kWidth, kHeight);
  DuplicationTarget target = duplicationTarget();
  CountedRef<IDXGIOutputDuplication> duplication;
  ASSERT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()), S_OK);
  DXGI_OUTDUPL_FRAME_INFO info{};
  CountedRef<IDXGIResource> resource;
  ASSERT_EQ(duplication->AcquireNextFrame(100, &info, resource.put()), S_OK);
  ASSERT_EQ(duplication->ReleaseFrame(), S_OK);
  resource.reset();

  painter.reset();
  server->kill();
  HRESULT hr = S_OK;
  for (int i = 0; i < 50 && hr != DXGI_ERROR_ACCESS_LOST; ++i) hr = duplication->AcquireNextFrame(20, &info, resource.put());
  EXPECT_EQ(hr, DXGI_ERROR_ACCESS_LOST);
  EXPECT_EQ(duplication->AcquireNextFrame(20, &info, resource.put()), DXGI_ERROR_ACCESS_LOST);
  duplication.reset();
  // With the display gone a new duplication can't be made, and says so.
  EXPECT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()), DXGI_ERROR_SESSION_DISCONNECTED);
}

// Damage that lands while a frame is being taken must still make the next frame: a screen that
// keeps changing keeps giving frames, however its changes fall against the grabs.
TEST_F(X11DesktopTest, AScreenThatKeepsChangingKeepsGivingFrames) {
  D3DContext d3d;
  DxgiDuplicationCapture capture;
  ASSERT_NO_FATAL_FAILURE(startCapture(d3d, capture, 30));
  std::atomic<bool> drawing{true};
  std::thread artist([&] {
    XPainter own(server->name());
    for (uint32_t i = 0; drawing.load(); ++i) {
      own.fill(bgra(uint8_t(i), uint8_t(i * 3), 90), 0, 0, kWidth, kHeight);
      std::this_thread::sleep_for(std::chrono::microseconds(700));
    }
  });
  // A stall after a lost damage report shows as a run of empty acquires: each waits the full
  // time-out while the screen goes on changing.
  int frames = 0, longestEmptyRun = 0, emptyRun = 0;
  for (int i = 0; i < 200; ++i) {
    CountedRef<ID3D11Texture2D> slot;
    int64_t timestamp = 0;
    if (capture.acquireFrame(slot, timestamp)) {
      capture.releaseFrame();
      ++frames;
      emptyRun = 0;
    } else {
      longestEmptyRun = std::max(longestEmptyRun, ++emptyRun);
    }
  }
  drawing.store(false);
  artist.join();
  EXPECT_GT(frames, 150);
  EXPECT_LT(longestEmptyRun, 5);
}

}  // namespace
