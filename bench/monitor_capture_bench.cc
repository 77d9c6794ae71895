// Monitor capture at 1920x1080: the cost of one frame from the platform's desktop into the
// source's texture beside a memcpy of one frame, and how many frames a second one thread takes
// from a desktop that changes faster than it can ask. Synthetic desktop, then a private Xvfb when
// there is one. Prints figures; asserts nothing.
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
  control::reset();
  return 0;
}
