// Helpers for window capture tests: a capture device, start options for a window, frames waited
// for with a bound, and the performance counter's value converted as the capture converts it.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "capture/capture_source.h"
#include "gpu/d3d_context.h"
#include "session/start_options.h"
#include "test/support/gpu_test_helpers.h"

namespace testing_support {

StartOptions windowOptions(uint64_t window);

// Asks `source` for a frame every millisecond, as the frame loop does, until one comes or
// `limit` passes.
bool waitForFrame(CaptureSource& source, CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp,
                  std::chrono::milliseconds limit = std::chrono::milliseconds(2000));
// True if any frame comes within `period`.
bool anyFrameWithin(CaptureSource& source, std::chrono::milliseconds period);

// A GPU test with a capture device on the first adapter; its teardown also leaves the test
// thread's COM apartment, as a worker thread that ends would, and closes every window.
class WindowCaptureTest : public GpuTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::vector<uint32_t> pixelsOf(ID3D11Texture2D* texture);
  uint32_t widthOf(ID3D11Texture2D* texture);
  uint32_t heightOf(ID3D11Texture2D* texture);

  D3DContext d3d;
};

}  // namespace testing_support
