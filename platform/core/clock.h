// The performance counter for the platform's own use (frame times), without the fault plan.
#pragma once

#include <cstdint>

namespace platform {

int64_t performanceCounterNow();
int64_t performanceFrequency();

}  // namespace platform
