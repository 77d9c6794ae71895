// Helpers for tests of Desktop Duplication: a machine of small outputs, a duplication of one of
// them opened through the SDK surface, and timing of a call.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "test/support/gpu_test_helpers.h"

namespace testing_support {

// One NVIDIA adapter with `outputs` outputs of `width` x `height`, animating `refreshRate` a second.
platform::control::MachineDescription smallDesktop(uint32_t width, uint32_t height, uint32_t refreshRate = 60,
                                                   int outputs = 1);

// A device on adapter `adapterIndex` and output `outputIndex` of it, as IDXGIOutput1.
struct DuplicationTarget {
  D3D d3d;
  CountedRef<IDXGIOutput1> output;
};
DuplicationTarget duplicationTarget(UINT adapterIndex = 0, UINT outputIndex = 0);

// Milliseconds that `body` took.
double millisecondsOf(const std::function<void()>& body);

}  // namespace testing_support
