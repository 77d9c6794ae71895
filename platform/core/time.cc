// Win32 time on the monotonic clock. The performance counter runs at 10 MHz, as on current Windows.
#include <time.h>

#include <thread>

#include "platform/core/call_gate.h"
#include "platform/core/clock.h"
#include "windows.h"

namespace {

uint64_t monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return uint64_t(now.tv_sec) * 1000000000ull + uint64_t(now.tv_nsec);
}

}  // namespace

int64_t platform::qpcNow() { return int64_t(monotonicNanoseconds() / 100); }

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
  lpPerformanceCount->QuadPart = LONGLONG(platform::qpcNow());
  return TRUE;
}

BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER* lpFrequency) {
  int64_t value = 0;
  if (platform::plannedFault("QueryPerformanceFrequency", &value)) return BOOL(value);
  if (lpFrequency == nullptr) return FALSE;
  lpFrequency->QuadPart = platform::kQpcFrequency;
  return TRUE;
}
