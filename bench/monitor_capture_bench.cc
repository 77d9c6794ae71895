// Monitor capture at 1920x1080: the cost of one frame from the platform's desktop into the
// source's texture beside a memcpy of one frame, and how many frames a second one thread takes
// from a desktop that changes faster than it can ask. Synthetic desktop, then a private Xvfb when
// there is one: there, also what one acquire of the duplication costs when the whole screen
// changes, when a terminal scrolls and when a small box changes, beside one XShmGetImage of the
// whole screen. Prints figures; asserts nothing.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "capture/dxgi_duplication_capture.h"
#include "gpu/d3d_context.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "session/start_options.h"
#include "test/support/duplication_helpers.h"
#include "test/support/x_server.h"
// After the test helpers: Xlib's macros (None, Bool) would break GoogleTest's headers.
// clang-format off
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
// clang-format on
#include <sys/ipc.h>
#include <sys/shm.h>

namespace control = platform::control;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double memcpyMs() {
  std::vector<uint8_t> from(size_t(kWidth) * kHeight * 4, 7), to(from.size());
  std::vector<double> times;
  for (int i = 0; i < 50; ++i) {
    auto start = Clock::now();
    std::memcpy(to.data(), from.data(), from.size());
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    from[size_t(i)] = to[size_t(i) + 1];  // keeps the copies from being folded away
  }
  return median(times);
}

// Frames one thread takes in `seconds`, with the median time of an acquire that gave one.
void measure(const char* name, double copyMs, const std::function<void()>& change = {}) {
  D3DContext d3d;
  if (!d3d.createForGlobalOutput(0)) return;
  StartOptions options;
  options.captureKind = CaptureKind::Screen;
  auto capture = std::make_unique<DxgiDuplicationCapture>();
  if (!capture->init(&d3d, options)) {
    std::printf("%s: the duplication didn't open\n", name);
    return;
  }
  capture->setFrameRate(1000);
  CountedRef<ID3D11Texture2D> slot;
  int64_t timestamp = 0;
  std::vector<double> frameMs;
  int frames = 0;
  auto start = Clock::now();
  while (Clock::now() - start < std::chrono::seconds(2)) {
    if (change) change();
    auto before = Clock::now();
    bool got = capture->acquireFrame(slot, timestamp);
    double ms = std::chrono::duration<double, std::milli>(Clock::now() - before).count();
    if (!got) continue;
    capture->releaseFrame();
    frameMs.push_back(ms);
    ++frames;
  }
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  double perFrame = median(frameMs);
  std::printf("%s: %.2f ms a frame (%.1fx a memcpy of one), %.0f frames/s\n", name, perFrame, perFrame / copyMs,
              frames / seconds);
}

// Draws on the X screen from a connection of the bench's own; each change is on the server when
// the call returns.
class XScribbler {
 public:
  explicit XScribbler(const std::string& name) : display(XOpenDisplay(name.c_str())) {
    if (display == nullptr) return;
    root = DefaultRootWindow(display);
    XGCValues values{};
    values.graphics_exposures = False;  // copies within the root ask for no exposure events
    gc = XCreateGC(display, root, GCGraphicsExposures, &values);
  }
  ~XScribbler() {
    if (display == nullptr) return;
    XFreeGC(display, gc);
    XCloseDisplay(display);
  }
  bool open() const { return display != nullptr; }

  void fill(uint32_t colour, int x, int y, unsigned w, unsigned h) {
    XSetForeground(display, gc, colour & 0xFFFFFF);
    XFillRectangle(display, root, gc, x, y, w, h);
    XSync(display, False);
  }

  // A terminal of w x h at (x, y) scrolls up by one line of text and writes a new bottom line.
  void scrollTerminal(int x, int y, unsigned w, unsigned h, unsigned frame) {
    constexpr unsigned kLine = 16;
    XCopyArea(display, root, root, gc, x, y + int(kLine), w, h - kLine, x, y);
    XSetForeground(display, gc, 0x101010);
    XFillRectangle(display, root, gc, x, y + int(h - kLine), w, kLine);
    // Glyphs: boxes of a character cell each, some blank, in the text colour.
    XSetForeground(display, gc, 0xC0C0C0);
    std::vector<XRectangle> glyphs;
    for (unsigned column = 0; column < w / 8; ++column) {
      if ((column * 7 + frame * 13) % 5 == 0) continue;
      glyphs.push_back({short(x + int(column) * 8 + 1), short(y + int(h) - 14), 6, 11});
    }
    XFillRectangles(display, root, gc, glyphs.data(), int(glyphs.size()));
    XSync(display, False);
  }

  // The median time of one XShmGetImage of the whole screen into a segment of its size.
  double fullGrabMs() {
    int screen = DefaultScreen(display);
    XShmSegmentInfo segment{};
    XImage* image = XShmCreateImage(display, DefaultVisual(display, screen), unsigned(DefaultDepth(display, screen)),
                                    ZPixmap, nullptr, &segment, kWidth, kHeight);
    if (image == nullptr) return 0;
    segment.shmid = shmget(IPC_PRIVATE, size_t(image->bytes_per_line) * image->height, IPC_CREAT | 0600);
    segment.shmaddr = image->data = static_cast<char*>(shmat(segment.shmid, nullptr, 0));
    shmctl(segment.shmid, IPC_RMID, nullptr);
    XShmAttach(display, &segment);
    std::vector<double> times;
    for (int i = 0; i < 100; ++i) {
      auto start = Clock::now();
      XShmGetImage(display, root, image, 0, 0, AllPlanes);
      times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    XShmDetach(display, &segment);
    XSync(display, False);
    image->data = nullptr;
    XDestroyImage(image);
    shmdt(segment.shmaddr);
    return median(times);
  }

 private:
  Display* display;
  Window root = 0;
  GC gc = nullptr;
};

// The median and 90th percentile time of one acquire (and release) of a duplication, with
// `change` drawn before each.
void measureAcquire(const char* name, const std::function<void(unsigned)>& change) {
  testing_support::DuplicationTarget target = testing_support::duplicationTarget();
  CountedRef<IDXGIOutputDuplication> duplication;
  if (!target.output || FAILED(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()))) {
    std::printf("%s: the duplication didn't open\n", name);
    return;
  }
  std::vector<double> times;
  auto start = Clock::now();
  for (unsigned frame = 0; Clock::now() - start < std::chrono::seconds(2); ++frame) {
    change(frame);
    DXGI_OUTDUPL_FRAME_INFO info{};
    CountedRef<IDXGIResource> resource;
    auto before = Clock::now();
    HRESULT hr = duplication->AcquireNextFrame(100, &info, resource.put());
    if (hr == S_OK) duplication->ReleaseFrame();
    double ms = std::chrono::duration<double, std::milli>(Clock::now() - before).count();
    // The first acquire takes the whole screen whatever changed.
    if (hr == S_OK && frame > 0) times.push_back(ms);
  }
  std::sort(times.begin(), times.end());
  if (times.empty()) return;
  std::printf("%s: %.2f ms an acquire (p90 %.2f ms, %zu frames)\n", name, times[times.size() / 2],
              times[times.size() * 9 / 10], times.size());
}

}  // namespace

int main() {
  double copyMs = memcpyMs();
  std::printf("memcpy of one %ux%u BGRA frame: %.2f ms\n", kWidth, kHeight, copyMs);

  control::reset();
  control::setMachine(testing_support::smallDesktop(kWidth, kHeight, 1000));
  measure("synthetic desktop changing 1000 times a second", copyMs);

  if (!testing_support::XvfbServer::installed()) return 0;
  testing_support::XvfbServer server(kWidth, kHeight);
  if (!server.running()) return 0;
  testing_support::XPainter painter(server.name());
  control::MachineDescription machine = testing_support::smallDesktop(kWidth, kHeight);
  machine.display = server.name();
  control::setMachine(machine);
  uint32_t colour = 0;
  // Each pass draws a small box before it asks, so that every acquire finds damage.
  measure("Xvfb screen with a box drawn before each acquire", copyMs,
          [&] { painter.fill(colour += 0x010203, 100, 100, 64, 64); });

  XScribbler scribbler(server.name());
  if (!scribbler.open()) return 0;
  scribbler.fill(0x204060, 0, 0, kWidth, kHeight);
  std::printf("XShmGetImage of the whole screen: %.2f ms\n", scribbler.fullGrabMs());
  measureAcquire("duplication, the whole screen changing",
                 [&](unsigned frame) { scribbler.fill(0x010203 * frame, 0, 0, kWidth, kHeight); });
  measureAcquire("duplication, a 1200x700 terminal scrolling a line",
                 [&](unsigned frame) { scribbler.scrollTerminal(300, 200, 1200, 700, frame); });
  measureAcquire("duplication, a 64x64 box changing",
                 [&](unsigned frame) { scribbler.fill(0x010203 * frame, 100, 100, 64, 64); });
  control::reset();
  return 0;
}
