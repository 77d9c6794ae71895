// Performance-counter readings in the 100 ns ticks that capture timestamps are given in. The
// counter's rate is whatever QueryPerformanceFrequency says: 10 MHz on most machines, not all.
#pragma once

#include <cstdint>

// `counter` ticks of the performance counter in 100 ns ticks; 0 where the counter reads 0 or has
// no positive frequency (a frame without time).
int64_t performanceCounterTo100ns(int64_t counter);
// The performance counter now, in 100 ns ticks.
int64_t performanceTimeNow();
