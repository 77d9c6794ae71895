#include "session/session_metrics.h"

#include <windows.h>

#include <cstring>

namespace {

constexpr uint64_t kWindowMs = 1000;

}  // namespace

double AtomicDouble::load() const {
  uint64_t raw = bits.load();
  double value;
  std::memcpy(&value, &raw, sizeof value);
  return value;
}

void AtomicDouble::store(double value) {
  uint64_t raw;
  std::memcpy(&raw, &value, sizeof raw);
  bits.store(raw);
}

void updateRate(uint64_t now, std::atomic<uint64_t>& start, std::atomic<uint64_t>& count, AtomicDouble& rate) {
  count.fetch_add(1);
  uint64_t opened = start.load();
  if (opened == 0) {
    // The opening event stays counted in the window it opens.
    start.store(now);
    return;
  }
  uint64_t elapsed = now - opened;
  if (elapsed < kWindowMs) return;
  rate.store(static_cast<double>(count.load()) * 1000.0 / static_cast<double>(elapsed));
  count.store(0);
  start.store(now);
}

void SessionMetrics::recordSent(uint64_t bytes) {
  uint64_t now = GetTickCount64();
  updateRate(now, rtpWindowStart, rtpCount, rtpFps);
  bitrateWindowBytes.fetch_add(bytes);
  uint64_t opened = bitrateWindowStart.load();
  if (opened == 0) {
    bitrateWindowStart.store(now);
    return;
  }
  uint64_t elapsed = now - opened;
  if (elapsed < kWindowMs) return;
  bitrate.store(static_cast<double>(bitrateWindowBytes.load()) * 8.0 * 1000.0 / static_cast<double>(elapsed));
  bitrateWindowBytes.store(0);
  bitrateWindowStart.store(now);
}

void SessionMetrics::updateFrameSizeAverage(uint64_t bytes) {
  uint64_t now = GetTickCount64();
  frameSizeWindowBytes.fetch_add(bytes);
  frameSizeWindowFrames.fetch_add(1);
  uint64_t opened = frameSizeWindowStart.load();
  if (opened == 0) {
    frameSizeWindowStart.store(now);
    return;
  }
  if (now - opened < kWindowMs) return;
  uint64_t frames = frameSizeWindowFrames.load();
  if (frames != 0) avgFrameBytes.store(static_cast<double>(frameSizeWindowBytes.load()) / static_cast<double>(frames));
  frameSizeWindowBytes.store(0);
  frameSizeWindowFrames.store(0);
  frameSizeWindowStart.store(now);
}
