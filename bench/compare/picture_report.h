// What the delay receiver reports: every received picture decoded in order, the frame code read
// from each one whose last datagram arrived inside the measured window, and the figures of those.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/compare/rtp_depacketiser.h"

struct MeasuredWindow {
  int64_t startUs = 0, stopUs = 0;  // CLOCK_MONOTONIC
};

struct WindowFigures {
  double seconds = 0;
  uint64_t pictures = 0;    // access units completed in the window
  uint64_t unreadable = 0;  // of those: damaged, not decoded, or no frame code
  uint64_t repeated = 0;    // of the readable ones: the same code as the picture before
  double p50Ms = 0, p95Ms = 0, p99Ms = 0;  // paint to last datagram
};

// Decodes all `units` (the ones before the window too: later pictures refer to them).
WindowFigures measure(const std::vector<AccessUnit>& units, const MeasuredWindow& window);

std::string toJson(const WindowFigures& figures, uint64_t lostPackets);
