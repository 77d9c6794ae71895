// A duplication of an X screen keeps its image and fetches only what changed: a private Xvfb is
// drawn on in known places and every frame is compared, pixel for pixel, with a model of what
// the screen shows.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/control/desktop_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "test/support/duplication_helpers.h"
#include "test/support/gpu_test_helpers.h"
#include "test/support/x_server.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 200;

// What the screen shows, drawn on the real one and on a copy kept here.
class ScreenModel {
 public:
  explicit ScreenModel(XPainter& painter) : painter(painter), pixels(size_t(kWidth) * kHeight, bgra(0, 0, 0)) {}

  // `onScreen` false: it's been drawn already, through another connection.
  void fill(uint32_t colour, int x, int y, int w, int h, bool onScreen = true) {
    if (onScreen) painter.fill(colour, x, y, unsigned(w), unsigned(h));
    for (int row = y; row < y + h; ++row)
      for (int column = x; column < x + w; ++column) pixels[size_t(row) * kWidth + column] = colour;
  }
  void copyArea(int x, int y, int w, int h, int toX, int toY) {
    painter.copyArea(x, y, unsigned(w), unsigned(h), toX, toY);
    std::vector<uint32_t> before = pixels;
    for (int row = 0; row < h; ++row)
      for (int column = 0; column < w; ++column)
        pixels[size_t(toY + row) * kWidth + toX + column] = before[size_t(y + row) * kWidth + x + column];
  }
  // The frame a duplication of `w` x `h` should give: the screen's top left, black beyond it.
  std::vector<uint32_t> frame(int w = kWidth, int h = kHeight) const {
    std::vector<uint32_t> out(size_t(w) * h, bgra(0, 0, 0));
    for (int row = 0; row < std::min(h, kHeight); ++row)
      for (int column = 0; column < std::min(w, kWidth); ++column)
        out[size_t(row) * w + column] = pixels[size_t(row) * kWidth + column];
    return out;
  }

 private:
  XPainter& painter;
  std::vector<uint32_t> pixels;
};

class X11ScreenChangesTest : public GpuTest {
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
    screen = std::make_unique<ScreenModel>(*painter);
    // Distinct boxes everywhere, so that a change copied to the wrong place shows.
    screen->fill(bgra(20, 40, 60), 0, 0, kWidth, kHeight);
    for (int i = 0; i < 8; ++i)
      screen->fill(bgra(uint8_t(30 * i), uint8_t(200 - 20 * i), 77), (i % 4) * 80 + 3, (i / 4) * 100 + 5, 40, 50);
  }
  void TearDown() override {
    duplication.reset();
    target = {};
    screen.reset();
    painter.reset();
    server.reset();
    GpuTest::TearDown();
  }

  void duplicate() {
    target = duplicationTarget();
    ASSERT_TRUE(target.output);
    ASSERT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()), S_OK);
  }

  // The pixels of the next frame within `timeoutMs`; empty when none came.
  std::vector<uint32_t> nextFrame(UINT timeoutMs = 500) {
    DXGI_OUTDUPL_FRAME_INFO info{};
    CountedRef<IDXGIResource> resource;
    HRESULT hr = duplication->AcquireNextFrame(timeoutMs, &info, resource.put());
    if (hr != S_OK) {
      EXPECT_EQ(hr, DXGI_ERROR_WAIT_TIMEOUT);
      return {};
    }
    CountedRef<ID3D11Texture2D> texture;
    texture.queryFrom(resource.get());
    std::vector<uint32_t> pixels = readPixels(target.d3d.device.get(), target.d3d.context.get(), texture.get());
    EXPECT_EQ(duplication->ReleaseFrame(), S_OK);
    return pixels;
  }

  std::unique_ptr<XvfbServer> server;
  std::unique_ptr<XPainter> painter;
  std::unique_ptr<ScreenModel> screen;
  DuplicationTarget target;
  CountedRef<IDXGIOutputDuplication> duplication;
};

TEST_F(X11ScreenChangesTest, EachFrameShowsTheChangedAreasAndKeepsEveryOtherPixel) {
  ASSERT_NO_FATAL_FAILURE(duplicate());
  EXPECT_EQ(nextFrame(), screen->frame()) << "the first frame";

  screen->fill(bgra(250, 250, 0), 201, 121, 16, 9);
  EXPECT_EQ(nextFrame(), screen->frame()) << "one small box";

  // Areas apart from each other, in one frame: two, then several.
  screen->fill(bgra(7, 250, 250), 2, 1, 8, 6);
  screen->fill(bgra(250, 7, 250), 300, 180, 12, 15);
  EXPECT_EQ(nextFrame(), screen->frame()) << "two boxes in opposite corners";
  screen->fill(bgra(1, 2, 250), 5, 150, 10, 10);
  screen->fill(bgra(250, 2, 1), 290, 3, 25, 7);
  screen->fill(bgra(9, 250, 9), 150, 90, 3, 60);
  screen->fill(bgra(99, 0, 99), 311, 191, 9, 9);
  EXPECT_EQ(nextFrame(), screen->frame()) << "four boxes";

  // Boxes close together, overlapping in rows and columns.
  screen->fill(bgra(10, 200, 250), 100, 50, 10, 10);
  screen->fill(bgra(250, 100, 10), 115, 55, 10, 12);
  screen->fill(bgra(80, 80, 255), 104, 58, 14, 4);
  EXPECT_EQ(nextFrame(), screen->frame()) << "three boxes close together";

  // A terminal scrolling: a copy within the screen, then a new bottom line.
  screen->copyArea(40, 30, 200, 120, 40, 20);
  screen->fill(bgra(200, 200, 200), 40, 140, 200, 10);
  EXPECT_EQ(nextFrame(), screen->frame()) << "a scroll";

  screen->fill(bgra(3, 3, 3), 0, 0, kWidth, kHeight);
  EXPECT_EQ(nextFrame(), screen->frame()) << "the whole screen";
  screen->fill(bgra(128, 0, 255), 100, 100, 1, 1);
  EXPECT_EQ(nextFrame(), screen->frame()) << "one pixel";
  EXPECT_TRUE(nextFrame(30).empty()) << "nothing changed";

  // A new duplication starts again from the whole screen.
  duplication.reset();
  screen->fill(bgra(60, 70, 80), 10, 10, 30, 30);
  ASSERT_NO_FATAL_FAILURE(duplicate());
  EXPECT_EQ(nextFrame(), screen->frame()) << "the first frame of another duplication";
}

TEST_F(X11ScreenChangesTest, AModeOtherThanTheScreensKeepsBlackBeyondTheScreenAndClipsChanges) {
  for (auto [w, h] : {std::pair{kWidth + 24, kHeight + 10}, std::pair{kWidth - 30, kHeight - 20}}) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    ASSERT_TRUE(control::setOutputMode(0, uint32_t(w), uint32_t(h)));
    ASSERT_NO_FATAL_FAILURE(duplicate());
    EXPECT_EQ(nextFrame(), screen->frame(w, h));
    screen->fill(bgra(240, 10, 10), kWidth - 40, kHeight - 30, 40, 30);  // across the smaller mode's edge
    screen->fill(bgra(10, 10, 240), 0, 0, 5, 5);
    EXPECT_EQ(nextFrame(), screen->frame(w, h));
    duplication.reset();
  }
}

// The `i`th box the artist below draws in `round`.
struct Box {
  uint32_t colour;
  int x, y;
};
Box artistBox(int round, int i) {
  return {bgra(uint8_t(round * 20 + i), uint8_t(i * 4), 200), (i * 37) % (kWidth - 20), (i * 23 + round) % (kHeight - 20)};
}

// Drawing goes on while frames are taken: whatever lands during a grab makes another frame, so
// once the drawing stops the last frame shows the screen as it is.
TEST_F(X11ScreenChangesTest, ChangesDuringGrabsAllReachALaterFrame) {
  ASSERT_NO_FATAL_FAILURE(duplicate());
  ASSERT_FALSE(nextFrame().empty());
  constexpr int kBoxes = 60;
  for (int round = 0; round < 10; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::atomic<bool> drawing{true};
    std::thread artist([&] {
      XPainter own(server->name());
      for (int i = 0; i < kBoxes; ++i) {
        Box box = artistBox(round, i);
        own.fill(box.colour, box.x, box.y, 20, 20);
        std::this_thread::sleep_for(std::chrono::microseconds(150 + 50 * (i % 7)));
      }
      drawing.store(false);
    });
    std::vector<uint32_t> last;
    int frames = 0;
    while (drawing.load()) {
      std::vector<uint32_t> frame = nextFrame(20);
      if (!frame.empty()) last = std::move(frame), ++frames;
    }
    artist.join();
    for (std::vector<uint32_t> frame = nextFrame(50); !frame.empty(); frame = nextFrame(50)) last = std::move(frame);
    for (int i = 0; i < kBoxes; ++i) {
      Box box = artistBox(round, i);
      screen->fill(box.colour, box.x, box.y, 20, 20, false);
    }
    EXPECT_GT(frames, 1);
    EXPECT_EQ(last, screen->frame());
  }
}

}  // namespace
