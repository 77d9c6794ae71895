// The performance counter as tests set it: another rate, and a reading far from zero, so that
// long uptimes and odd clock rates can be tried without waiting for them.
#pragma once

#include <cstdint>

namespace platform::control {

// From now on QueryPerformanceFrequency answers `frequency` (at least 1) and
// QueryPerformanceCounter reads `counterNow` now, advancing at that rate.
void setPerformanceCounter(int64_t frequency, int64_t counterNow);
// Back to 10 MHz counting from the monotonic clock's origin; reset() does this too.
void resetPerformanceCounter();

}  // namespace platform::control
