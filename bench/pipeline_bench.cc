// The whole pipeline at 1920x1080: capture of the synthetic desktop (or of an X display given
// with --display), NV12 conversion, H.264, pacing and RTP to a receiver on loopback. Prints the
// delivered rate, dropped frames, CPU cores used and the delay from a frame's present time to its
// last datagram, p50/p95/p99. Asserts nothing.
//
//   pipeline_bench [seconds] [--fps N] [--display :N]
#include <X11/Xlib.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "session/native_session.h"
#include "test/support/udp_arrivals.h"

namespace control = platform::control;

namespace {

// Changes the X screen's content `rate` times a second, so that duplication has frames to give.
class XAnimator {
 public:
  XAnimator(const std::string& name, int rate) {
    display = XOpenDisplay(name.c_str());
    if (!display) return;
    thread = std::thread([this, rate] {
      Window root = DefaultRootWindow(display);
      GC gc = XCreateGC(display, root, 0, nullptr);
      for (unsigned long frame = 0; !done.load(); ++frame) {
        XSetForeground(display, gc, (frame * 0x010203) & 0xFFFFFF);
        XFillRectangle(display, root, gc, int(frame * 7 % 1800), 0, 120, 1080);
        XSync(display, False);
        std::this_thread::sleep_for(std::chrono::microseconds(1000000 / rate));
      }
      XFreeGC(display, gc);
    });
  }
  ~XAnimator() {
    done.store(true);
    if (thread.joinable()) thread.join();
    if (display) XCloseDisplay(display);
  }
  bool ok() const { return display != nullptr; }

 private:
  Display* display = nullptr;
  std::atomic<bool> done{false};
  std::thread thread;
};

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t index = std::min(values.size() - 1, size_t(p / 100.0 * double(values.size())));
  return values[index];
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 30;
  int fps = 80;
  std::string display;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--fps" && i + 1 < argc) fps = std::atoi(argv[++i]);
    else if (arg == "--display" && i + 1 < argc) display = argv[++i];
    else seconds = std::atoi(argv[i]);
  }

  control::reset();
  control::MachineDescription machine = control::currentMachine();
  machine.display = display;
  machine.refreshRate = uint32_t(fps);
  control::setMachine(machine);
  XAnimator animator(display.empty() ? std::string() : display, fps);
  if (!display.empty() && !animator.ok()) {
    std::fprintf(stderr, "pipeline_bench: cannot open X display %s\n", display.c_str());
    return 1;
  }

  testing_support::UdpArrivals receiver;
  NativeSession session;
  StartOptions options;
  options.captureKind = CaptureKind::Screen;
  options.width = 1920;
  options.height = 1080;
  options.fps = fps;
  options.bitrate = 8000000;
  options.ip = "127.0.0.1";
  options.port = receiver.port();
  options.ssrc = 1;

  uint64_t droppedBefore = session.metrics.droppedFrames.load();
  if (!session.start(options)) {
    std::fprintf(stderr, "pipeline_bench: start failed: %s\n", session.lastError.c_str());
    return 1;
  }
  double cpuBefore = cpuSeconds();
  auto wallBefore = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
  double cpu = cpuSeconds() - cpuBefore;
  std::string encoderName = session.currentEncoderName();
  double captureFps = session.metrics.captureFps.load();
  uint64_t firstTimestamp = session.firstFrameTimestamp;
  session.stop();
  receiver.stop();
  uint64_t dropped = session.metrics.droppedFrames.load() - droppedBefore;

  // The last datagram of a picture carries the marker; its RTP time leads back to the frame's
  // present time on the performance counter.
  std::vector<double> delaysMs;
  uint64_t pictures = 0;
  for (const testing_support::RtpArrival& arrival : receiver.arrivals()) {
    if (!arrival.marker) continue;
    ++pictures;
    if (firstTimestamp == 0) continue;
    int64_t present = int64_t(firstTimestamp) + int64_t(uint64_t(arrival.rtpTimestamp) * 10000000 / 90000);
    delaysMs.push_back(double(arrival.monotonic100ns - present) / 10000.0);
  }
  std::printf("pipeline_bench: %s 1920x1080 at %d fps for %.1f s, encoder %s\n",
              display.empty() ? "synthetic desktop" : display.c_str(), fps, wall, encoderName.c_str());
  std::printf("  delivered %.1f fps (%llu pictures, %zu datagrams), dropped %llu (%.2f%%)\n", double(pictures) / wall,
              (unsigned long long)pictures, receiver.arrivals().size(), (unsigned long long)dropped,
              pictures + dropped ? 100.0 * double(dropped) / double(pictures + dropped) : 0.0);
  std::printf("  captured %.1f fps (the last second's rate), CPU %.2f cores\n", captureFps, cpu / wall);
  if (!delaysMs.empty()) {
    std::printf("  delay present -> last datagram: p50 %.1f ms, p95 %.1f ms, p99 %.1f ms\n", percentile(delaysMs, 50),
                percentile(delaysMs, 95), percentile(delaysMs, 99));
  } else {
    std::printf("  delay: no frame carried a present time\n");
  }
  return 0;
}
