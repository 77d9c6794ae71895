// Window capture of a real X display's windows, by their X11 ids, on an Xvfb of the test's own.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "capture/wgc_window_capture.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "test/support/window_capture_helpers.h"
#include "test/support/x_server.h"

// Last: Xlib's macros (None, Bool, Status) would rename names in the headers above.
#include <X11/Xlib.h>

namespace control = platform::control;
using namespace std::chrono_literals;
using testing_support::bgra;
using testing_support::waitForFrame;

namespace {

const uint32_t kRed = bgra(230, 10, 20);
const uint32_t kGreen = bgra(20, 190, 40);
const uint32_t kBlue = bgra(0, 60, 220);

class X11WindowCapture : public testing_support::WindowCaptureTest {
 protected:
  void SetUp() override {
    if (!testing_support::XvfbServer::installed()) GTEST_SKIP() << "Xvfb is not installed";
    WindowCaptureTest::SetUp();
    ASSERT_TRUE(server.running());
    control::MachineDescription machine = control::currentMachine();
    machine.display = server.name();
    control::setMachine(machine);
    client = XOpenDisplay(server.name().c_str());
    ASSERT_NE(client, nullptr);
  }

  void TearDown() override {
    if (client != nullptr) XCloseDisplay(client);
    if (testing_support::XvfbServer::installed()) WindowCaptureTest::TearDown();
    server.kill();
  }

  // A mapped window whose background is `colour` (24-bit visuals hold 0xRRGGBB).
  Window openWindow(int x, int y, unsigned width, unsigned height, uint32_t colour) {
    Window window =
        XCreateSimpleWindow(client, DefaultRootWindow(client), x, y, width, height, 0, 0, colour & 0xFFFFFFu);
    XMapRaised(client, window);
    XSync(client, False);
    return window;
  }

  void fill(Window window, int x, int y, unsigned width, unsigned height, uint32_t colour) {
    GC gc = XCreateGC(client, window, 0, nullptr);
    XSetForeground(client, gc, colour & 0xFFFFFFu);
    XFillRectangle(client, window, gc, x, y, width, height);
    XFreeGC(client, gc);
    XSync(client, False);
  }

  std::unique_ptr<WgcWindowCapture> started(Window window) {
    auto source = std::make_unique<WgcWindowCapture>();
    EXPECT_TRUE(source->init(&d3d, testing_support::windowOptions(window)));
    return source;
  }

  template <class Expected>
  size_t wrongPixels(ID3D11Texture2D* texture, Expected expected) {
    std::vector<uint32_t> pixels = pixelsOf(texture);
    uint32_t width = widthOf(texture);
    size_t wrong = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
      if (pixels[i] != expected(uint32_t(i % width), uint32_t(i / width))) ++wrong;
    return wrong;
  }

  testing_support::XvfbServer server{640, 480};
  Display* client = nullptr;
};

TEST_F(X11WindowCapture, AWindowIsCapturedByItsIdWithItsPixelsAndThenItsChanges) {
  Window window = openWindow(30, 20, 64, 48, kRed);
  EXPECT_TRUE(IsWindow(reinterpret_cast<HWND>(window)));
  EXPECT_TRUE(IsWindow(reinterpret_cast<HWND>(DefaultRootWindow(client))));
  EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(window + 0x1000)));

  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(widthOf(texture.get()), 64u);
  EXPECT_EQ(heightOf(texture.get()), 48u);
  EXPECT_EQ(wrongPixels(texture.get(), [](uint32_t, uint32_t) { return kRed; }), 0u);

  fill(window, 8, 4, 10, 20, kBlue);
  auto drawn = [](uint32_t x, uint32_t y) { return x >= 8 && x < 18 && y >= 4 && y < 24 ? kBlue : kRed; };
  // XDamage may report the fill in pieces; the last frame shows all of it.
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  auto deadline = std::chrono::steady_clock::now() + 2s;
  while (wrongPixels(texture.get(), drawn) != 0 && std::chrono::steady_clock::now() < deadline)
    waitForFrame(*source, texture, timestamp, 50ms);
  EXPECT_EQ(wrongPixels(texture.get(), drawn), 0u);
}

TEST_F(X11WindowCapture, AWindowPartlyCoveredByAnotherShowsItsOwnPixels) {
  Window below = openWindow(0, 0, 64, 48, kRed);
  openWindow(16, 16, 64, 48, kGreen);
  auto source = started(below);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(wrongPixels(texture.get(), [](uint32_t, uint32_t) { return kRed; }), 0u);
}

TEST_F(X11WindowCapture, AResizedWindowIsClippedToTheBuffer) {
  Window window = openWindow(0, 0, 40, 30, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  XResizeWindow(client, window, 60, 20);
  XSync(client, False);
  auto clipped = [](uint32_t, uint32_t y) { return y < 20 ? kBlue : 0u; };
  // The server may copy the old content into the resized window after a paint, as an Expose
  // would tell a real client: the test paints again until a frame shows it.
  auto deadline = std::chrono::steady_clock::now() + 2s;
  while (std::chrono::steady_clock::now() < deadline && wrongPixels(texture.get(), clipped) != 0) {
    fill(window, 0, 0, 60, 20, kBlue);
    waitForFrame(*source, texture, timestamp, 50ms);
  }
  EXPECT_EQ(widthOf(texture.get()), 40u);
  EXPECT_EQ(heightOf(texture.get()), 30u);
  EXPECT_EQ(wrongPixels(texture.get(), clipped), 0u);
}

TEST_F(X11WindowCapture, ADestroyedWindowStopsFrames) {
  Window window = openWindow(0, 0, 32, 32, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  XDestroyWindow(client, window);
  XSync(client, False);
  testing_support::anyFrameWithin(*source, 50ms);
  EXPECT_FALSE(testing_support::anyFrameWithin(*source, 150ms));
  EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(window)));
}

TEST_F(X11WindowCapture, ALostConnectionEndsFramesNotTheProcess) {
  Window window = openWindow(0, 0, 32, 32, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  XCloseDisplay(client);
  client = nullptr;
  server.kill();
  EXPECT_FALSE(testing_support::anyFrameWithin(*source, 150ms));
  EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(window)));
  source.reset();
  auto again = std::make_unique<WgcWindowCapture>();
  EXPECT_FALSE(again->init(&d3d, testing_support::windowOptions(window)));
}

}  // namespace
