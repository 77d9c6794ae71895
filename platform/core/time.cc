// Win32 time on the monotonic clock. The performance counter runs at 10 MHz, as on current Windows,
// unless a test sets another rate and reading.
#include <time.h>

#include <mutex>
#include <thread>

#include "platform/control/clock_control.h"
#include "platform/core/call_gate.h"
#include "platform/core/clock.h"
#include "windows.h"

namespace {

uint64_t monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return uint64_t(now.tv_sec) * 1000000000ull + uint64_t(now.tv_nsec);
}

// The counter reads `origin` at `setAt` and advances `frequency` ticks a second from there.
struct CounterClock {
  std::mutex mutex;
  int64_t frequency = 10000000;
  int64_t origin = 0;
  uint64_t setAt = 0;
};

CounterClock& counterClock() {
  static CounterClock* instance = new CounterClock;
  return *instance;
}

}  // namespace

namespace platform {

int64_t performanceCounterNow() {
  CounterClock& c = counterClock();
  std::lock_guard<std::mutex> lock(c.mutex);
  unsigned __int128 elapsed =
      (unsigned __int128)(monotonicNanoseconds() - c.setAt) * uint64_t(c.frequency) / 1000000000u;
  // Wraps like a hardware counter rather than overflowing.
  return int64_t(uint64_t(c.origin) + uint64_t(elapsed));
}

int64_t performanceFrequency() {
  CounterClock& c = counterClock();
  std::lock_guard<std::mutex> lock(c.mutex);
  return c.frequency;
}

namespace control {

void setPerformanceCounter(int64_t frequency, int64_t counterNow) {
  CounterClock& c = counterClock();
  std::lock_guard<std::mutex> lock(c.mutex);
  c.frequency = frequency < 1 ? 1 : frequency;
  c.origin = counterNow;
  c.setAt = monotonicNanoseconds();
}

void resetPerformanceCounter() {
  CounterClock& c = counterClock();
  std::lock_guard<std::mutex> lock(c.mutex);
  c.frequency = 10000000;
  c.origin = 0;
  c.setAt = 0;
}

}  // namespace control
}  // namespace platform

ULONGLONG WINAPI GetTickCount64(void) {
  int64_t value = 0;
  if (platform::plannedFault("GetTickCount64", &value)) return ULONGLONG(value);
  return monotonicNanoseconds() / 1000000ull;
}

DWORD WINAPI GetTickCount(void) {
  int64_t value = 0;
  if (platform::plannedFault("GetTickCount", &value)) return DWORD(value);
  return DWORD(monotonicNanoseconds() / 1000000ull);
}

void WINAPI Sleep(DWORD dwMilliseconds) {
  int64_t ignored = 0;
  platform::plannedFault("Sleep", &ignored);
  if (dwMilliseconds == 0) {
    std::this_thread::yield();
    return;
  }
  timespec pause{time_t(dwMilliseconds / 1000), long(dwMilliseconds % 1000) * 1000000L};
  while (nanosleep(&pause, &pause) != 0) {
  }
}

BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER* lpPerformanceCount) {
  int64_t value = 0;
  if (platform::plannedFault("QueryPerformanceCounter", &value)) return BOOL(value);
  if (lpPerformanceCount == nullptr) return FALSE;
  lpPerformanceCount->QuadPart = LONGLONG(platform::performanceCounterNow());
  return TRUE;
}

BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER* lpFrequency) {
  int64_t value = 0;
  if (platform::plannedFault("QueryPerformanceFrequency", &value)) return BOOL(value);
  if (lpFrequency == nullptr) return FALSE;
  lpFrequency->QuadPart = LONGLONG(platform::performanceFrequency());
  return TRUE;
}
