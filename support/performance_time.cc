#include "support/performance_time.h"

#include <windows.h>

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;

}  // namespace

int64_t performanceCounterTo100ns(int64_t counter) {
  LARGE_INTEGER frequency = {};
  QueryPerformanceFrequency(&frequency);
  if (frequency.QuadPart <= 0 || counter <= 0) return 0;
  // Whole seconds and the rest apart, so that a long uptime can't overflow the product.
  uint64_t ticks = uint64_t(counter);
  uint64_t rate = uint64_t(frequency.QuadPart);
  return int64_t(ticks / rate * kTicksPerSecond + ticks % rate * kTicksPerSecond / rate);
}

int64_t performanceTimeNow() {
  LARGE_INTEGER counter = {};
  QueryPerformanceCounter(&counter);
  return performanceCounterTo100ns(counter.QuadPart);
}
