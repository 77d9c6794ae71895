// The performance counter as the platform reads it for itself: no fault gate, no call counted.
// It runs at 10 MHz, as on current Windows.
#pragma once

#include <cstdint>

namespace platform {

constexpr int64_t kQpcFrequency = 10000000;

int64_t qpcNow();

}  // namespace platform
