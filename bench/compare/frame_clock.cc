// frame_clock: paints CLOCK_MONOTONIC (microseconds) as a frame code into a small window at the
// top right of the X display, a few hundred times a second, so that every captured picture says
// when it was painted.
//   frame_clock [--rate <paints per second>]      (DISPLAY names the display)
// Prints "ready" once the window is on screen, then paints until it is killed.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "bench/compare/frame_code.h"

namespace {

int64_t nowUs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return int64_t(t.tv_sec) * 1'000'000 + t.tv_nsec / 1000;
}

// Waits, for at most two seconds, until the server has mapped the window.
bool waitMapped(Display* display, Window window) {
  for (int tries = 0; tries < 200; ++tries) {
    XEvent event;
    if (XCheckTypedWindowEvent(display, window, MapNotify, &event)) return true;
    timespec pause{0, 10'000'000};
    nanosleep(&pause, nullptr);
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  int rate = 500;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--rate") == 0 && i + 1 < argc) rate = std::atoi(argv[++i]);
    else return std::fprintf(stderr, "usage: frame_clock [--rate <paints per second>]\n"), 2;
  }
  if (rate < 1 || rate > 5000) return std::fprintf(stderr, "frame_clock: --rate must be 1 to 5000\n"), 2;

  Display* display = XOpenDisplay(nullptr);
  if (display == nullptr) return std::fprintf(stderr, "frame_clock: cannot open the display\n"), 1;
  const int screen = DefaultScreen(display);
  if (DefaultDepth(display, screen) != 24) return std::fprintf(stderr, "frame_clock: the display must be 24 bits deep\n"), 1;

  // Override-redirect: placed exactly where the receiver looks, whatever manages the desktop.
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixel = BlackPixel(display, screen);
  attributes.event_mask = StructureNotifyMask;
  const Window window = XCreateWindow(display, RootWindow(display, screen), frame_code::kLeft, frame_code::kTop,
                                      frame_code::kWidth, frame_code::kHeight, 0, 24, InputOutput, CopyFromParent,
                                      CWOverrideRedirect | CWBackPixel | CWEventMask, &attributes);
  XMapRaised(display, window);
  XFlush(display);
  if (!waitMapped(display, window)) return std::fprintf(stderr, "frame_clock: the window never appeared\n"), 1;
  const GC gc = XCreateGC(display, window, 0, nullptr);

  std::vector<uint32_t> pixels(size_t(frame_code::kWidth) * frame_code::kHeight);
  XImage* image = XCreateImage(display, DefaultVisual(display, screen), 24, ZPixmap, 0,
                               reinterpret_cast<char*>(pixels.data()), frame_code::kWidth, frame_code::kHeight, 32,
                               frame_code::kWidth * 4);
  if (image == nullptr) return std::fprintf(stderr, "frame_clock: no image\n"), 1;
  std::printf("ready\n");
  std::fflush(stdout);

  const long periodNs = 1'000'000'000L / rate;
  timespec next{};
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (uint64_t paints = 0;; ++paints) {
    // The time is taken just before the picture goes to the server: the one X request puts the
    // whole code on screen at once, so a capture never sees half of it.
    frame_code::paint(uint64_t(nowUs()), pixels.data(), frame_code::kWidth);
    XPutImage(display, window, gc, image, 0, 0, 0, 0, frame_code::kWidth, frame_code::kHeight);
    // Windows mapped later must not cover the code.
    if (paints % uint64_t(rate) == 0) XRaiseWindow(display, window);
    XSync(display, False);

    next.tv_nsec += periodNs;
    while (next.tv_nsec >= 1'000'000'000L) next.tv_nsec -= 1'000'000'000L, ++next.tv_sec;
    // After a stall, paint again at once rather than in a burst.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec > next.tv_sec + 1) next = now;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
  }
}
