#include "test/support/window_capture_helpers.h"

#include <objbase.h>

#include <thread>

#include "platform/control/com_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"

namespace control = platform::control;

namespace testing_support {

StartOptions windowOptions(uint64_t window) {
  StartOptions options;
  options.captureKind = CaptureKind::Window;
  options.nativeHandle = int64_t(window);
  return options;
}

bool waitForFrame(CaptureSource& source, CountedRef<ID3D11Texture2D>& texture, int64_t& timestamp,
                  std::chrono::milliseconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (source.acquireFrame(texture, timestamp)) {
      source.releaseFrame();
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

bool anyFrameWithin(CaptureSource& source, std::chrono::milliseconds period) {
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  return waitForFrame(source, texture, timestamp, period);
}

void WindowCaptureTest::SetUp() {
  GpuTest::SetUp();
  ASSERT_TRUE(d3d.createOnFirstAdapter());
  control::clearDebugOutput();
}

void WindowCaptureTest::TearDown() {
  while (control::threadApartmentCount() > 0) CoUninitialize();
  control::closeAllWindows();
  d3d.context.reset();
  d3d.device.reset();
  d3d.adapter.reset();
  EXPECT_EQ(control::liveStringCount(), 0);
  GpuTest::TearDown();
}

std::vector<uint32_t> WindowCaptureTest::pixelsOf(ID3D11Texture2D* texture) {
  return readPixels(d3d.device.get(), d3d.context.get(), texture);
}

uint32_t WindowCaptureTest::widthOf(ID3D11Texture2D* texture) {
  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  return desc.Width;
}

uint32_t WindowCaptureTest::heightOf(ID3D11Texture2D* texture) {
  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  return desc.Height;
}

}  // namespace testing_support
