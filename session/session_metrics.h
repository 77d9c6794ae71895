// What getMetrics reports: three frame rates, a bit rate, the mean access unit size and the count
// of dropped frames. The worker writes, the JavaScript thread reads, with no lock: every field is
// a 64-bit atomic, the rates are doubles held by their bit pattern. Nothing resets them; a new
// session finds the windows as the last one left them.
#pragma once

#include <atomic>
#include <cstdint>

// A double published through a 64-bit atomic, so that a reader always sees a whole value.
class AtomicDouble {
 public:
  double load() const;
  void store(double value);

 private:
  std::atomic<uint64_t> bits{0};
};

struct SessionMetrics {
  std::atomic<uint64_t> droppedFrames{0};
  std::atomic<uint64_t> captureWindowStart{0};
  std::atomic<uint64_t> encodeWindowStart{0};
  std::atomic<uint64_t> rtpWindowStart{0};
  std::atomic<uint64_t> captureCount{0};
  std::atomic<uint64_t> encodeCount{0};
  std::atomic<uint64_t> rtpCount{0};
  AtomicDouble captureFps;
  AtomicDouble encodeFps;
  AtomicDouble rtpFps;
  AtomicDouble bitrate;
  AtomicDouble avgFrameBytes;
  std::atomic<uint64_t> frameSizeWindowStart{0};
  std::atomic<uint64_t> frameSizeWindowBytes{0};
  std::atomic<uint64_t> frameSizeWindowFrames{0};
  std::atomic<uint64_t> bitrateWindowStart{0};
  std::atomic<uint64_t> bitrateWindowBytes{0};

  // One sent access unit (with or without a slice) for rtpFps and bitrate.
  void recordSent(uint64_t bytes);
  // One sent access unit with a slice for avgFrameBytes.
  void updateFrameSizeAverage(uint64_t bytes);
};

// Counts one event at `now` (milliseconds) and publishes the rate when the window is at least a
// second old. A window start of 0 means not started.
void updateRate(uint64_t now, std::atomic<uint64_t>& start, std::atomic<uint64_t>& count, AtomicDouble& rate);
