// Desktop Duplication on the synthetic desktop, through the SDK surface: what a frame holds, when
// one comes, and how a duplication is lost and refused.
#include <gtest/gtest.h>

#include <thread>

#include "platform/control/desktop_control.h"
#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "test/support/duplication_helpers.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr uint32_t kWidth = 160;
constexpr uint32_t kHeight = 96;
constexpr uint32_t kRed = bgra(200, 10, 20);

struct Acquired {
  HRESULT hr = E_FAIL;
  DXGI_OUTDUPL_FRAME_INFO info{};
  CountedRef<IDXGIResource> resource;
};

Acquired acquire(IDXGIOutputDuplication* duplication, UINT timeoutMs) {
  Acquired a;
  a.hr = duplication->AcquireNextFrame(timeoutMs, &a.info, a.resource.put());
  return a;
}

class DesktopDuplicationTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    control::setMachine(smallDesktop(kWidth, kHeight, 20));
    target = duplicationTarget();
    ASSERT_TRUE(target.output);
  }
  void TearDown() override {
    target = {};
    GpuTest::TearDown();
  }

  CountedRef<IDXGIOutputDuplication> duplicate() {
    CountedRef<IDXGIOutputDuplication> duplication;
    EXPECT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()), S_OK);
    return duplication;
  }

  std::vector<uint32_t> pixelsOf(IDXGIResource* resource) {
    CountedRef<ID3D11Texture2D> texture;
    EXPECT_EQ(texture.queryFrom(resource), S_OK);
    return readPixels(target.d3d.device.get(), target.d3d.context.get(), texture.get());
  }

  DuplicationTarget target;
};

TEST_F(DesktopDuplicationTest, TheFirstAcquireGivesTheAnimatedDesktopAtOnceAsOneTextureOnTheDevice) {
  // Held still, the desktop has nothing new to wait for: only the first acquire's own image can
  // come before the time-out.
  control::freezeOutput(0);
  CountedRef<IDXGIOutputDuplication> duplication = duplicate();
  ASSERT_TRUE(duplication);
  DXGI_OUTDUPL_DESC desc{};
  duplication->GetDesc(&desc);
  EXPECT_EQ(desc.ModeDesc.Width, kWidth);
  EXPECT_EQ(desc.ModeDesc.Height, kHeight);
  EXPECT_EQ(desc.ModeDesc.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
  EXPECT_FALSE(desc.DesktopImageInSystemMemory);

  Acquired first;
  double waited = millisecondsOf([&] { first = acquire(duplication.get(), 500); });
  ASSERT_EQ(first.hr, S_OK);
  EXPECT_LT(waited, 250);
  EXPECT_GT(first.info.LastPresentTime.QuadPart, 0);
  EXPECT_EQ(first.info.LastPresentTime.QuadPart, control::latestPresentTime(0));
  EXPECT_EQ(first.info.AccumulatedFrames, 1u);

  CountedRef<ID3D11Texture2D> texture;
  ASSERT_EQ(texture.queryFrom(first.resource.get()), S_OK);
  D3D11_TEXTURE2D_DESC td{};
  texture->GetDesc(&td);
  EXPECT_EQ(td.Width, kWidth);
  EXPECT_EQ(td.Height, kHeight);
  EXPECT_EQ(td.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
  EXPECT_EQ(td.Usage, D3D11_USAGE_DEFAULT);
  EXPECT_EQ(td.CPUAccessFlags, 0u);
  CountedRef<ID3D11Device> owner;
  texture->GetDevice(owner.put());
  EXPECT_EQ(owner.get(), target.d3d.device.get());

  std::vector<uint32_t> pixels = pixelsOf(first.resource.get());
  uint32_t frame = control::frameIndexInCells(pixels.data(), kWidth);
  EXPECT_GE(frame, 1u);
  for (uint32_t y : {0u, 4u, 20u, kHeight / 2 + 3, kHeight - 1})
    for (uint32_t x = 0; x < kWidth; x += 7)
      ASSERT_EQ(pixels[y * kWidth + x], control::syntheticPixel(frame, kWidth, kHeight, x, y)) << x << "," << y;
  EXPECT_EQ(duplication->ReleaseFrame(), S_OK);

  // The next image comes with the animation, in the same texture, with a later time.
  control::animateOutput(0);
  Acquired second = acquire(duplication.get(), 500);
  ASSERT_EQ(second.hr, S_OK);
  EXPECT_EQ(second.resource.get(), first.resource.get());
  EXPECT_GT(second.info.LastPresentTime.QuadPart, first.info.LastPresentTime.QuadPart);
  std::vector<uint32_t> next = pixelsOf(second.resource.get());
  uint32_t later = control::frameIndexInCells(next.data(), kWidth);
  EXPECT_GT(later, frame);
  // Whole, though the platform only redraws what moved.
  for (uint32_t y = 0; y < kHeight; ++y)
    for (uint32_t x = 0; x < kWidth; ++x)
      ASSERT_EQ(next[y * kWidth + x], control::syntheticPixel(later, kWidth, kHeight, x, y)) << x << "," << y;
  EXPECT_EQ(duplication->ReleaseFrame(), S_OK);
}

TEST_F(DesktopDuplicationTest, AStillDesktopGivesNoFrameAfterARealWaitAndAPointerMoveGivesOneWithoutAnImage) {
  control::fillOutput(0, kRed);
  CountedRef<IDXGIOutputDuplication> duplication = duplicate();
  ASSERT_TRUE(duplication);
  Acquired first = acquire(duplication.get(), 100);
  ASSERT_EQ(first.hr, S_OK);
  EXPECT_EQ(pixelsOf(first.resource.get()), std::vector<uint32_t>(kWidth * kHeight, kRed));
  ASSERT_EQ(duplication->ReleaseFrame(), S_OK);

  Acquired still;
  double waited = millisecondsOf([&] { still = acquire(duplication.get(), 60); });
  EXPECT_EQ(still.hr, DXGI_ERROR_WAIT_TIMEOUT);
  EXPECT_FALSE(still.resource);
  EXPECT_GE(waited, 55);
  EXPECT_LT(waited, 300);
  EXPECT_EQ(duplication->ReleaseFrame(), DXGI_ERROR_INVALID_CALL);  // nothing is held

  ASSERT_TRUE(control::movePointer(0, 33, 44));
  Acquired pointer = acquire(duplication.get(), 100);
  ASSERT_EQ(pointer.hr, S_OK);
  EXPECT_EQ(pointer.info.LastPresentTime.QuadPart, 0);
  EXPECT_EQ(pointer.info.AccumulatedFrames, 0u);
  EXPECT_GT(pointer.info.LastMouseUpdateTime.QuadPart, 0);
  EXPECT_EQ(pointer.info.PointerPosition.Position.x, 33);
  EXPECT_EQ(pointer.info.PointerPosition.Position.y, 44);
  EXPECT_EQ(pixelsOf(pointer.resource.get()), std::vector<uint32_t>(kWidth * kHeight, kRed));

  // Acquiring again while the frame is held is the caller's mistake.
  Acquired twice = acquire(duplication.get(), 10);
  EXPECT_EQ(twice.hr, DXGI_ERROR_INVALID_CALL);
  EXPECT_EQ(duplication->ReleaseFrame(), S_OK);

  // A change wakes a waiting acquire at once; its time is the change's.
  std::thread painter([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    control::fillOutput(0, bgra(1, 2, 3));
  });
  Acquired changed;
  waited = millisecondsOf([&] { changed = acquire(duplication.get(), 2000); });
  painter.join();
  ASSERT_EQ(changed.hr, S_OK);
  EXPECT_LT(waited, 1000);
  EXPECT_EQ(changed.info.LastPresentTime.QuadPart, control::latestPresentTime(0));
  EXPECT_EQ(pixelsOf(changed.resource.get())[0], bgra(1, 2, 3));
  EXPECT_EQ(duplication->ReleaseFrame(), S_OK);
}

TEST_F(DesktopDuplicationTest, AModeChangeOrDesktopSwitchLosesTheDuplicationForGoodAndEndsAWait) {
  control::fillOutput(0, kRed);
  CountedRef<IDXGIOutputDuplication> duplication = duplicate();
  ASSERT_TRUE(duplication);
  ASSERT_EQ(acquire(duplication.get(), 100).hr, S_OK);
  ASSERT_EQ(duplication->ReleaseFrame(), S_OK);

  std::thread changer([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    control::setOutputMode(0, 64, 48);
  });
  Acquired lost;
  double waited = millisecondsOf([&] { lost = acquire(duplication.get(), 3000); });
  changer.join();
  EXPECT_EQ(lost.hr, DXGI_ERROR_ACCESS_LOST);
  EXPECT_LT(waited, 1000);
  EXPECT_EQ(acquire(duplication.get(), 0).hr, DXGI_ERROR_ACCESS_LOST);  // sticky

  // The lost one still holds the output until it is released; the new one sees the new size.
  CountedRef<IDXGIOutputDuplication> refused;
  EXPECT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), refused.put()), E_INVALIDARG);
  duplication.reset();
  duplication = duplicate();
  ASSERT_TRUE(duplication);
  DXGI_OUTDUPL_DESC desc{};
  duplication->GetDesc(&desc);
  EXPECT_EQ(desc.ModeDesc.Width, 64u);
  EXPECT_EQ(desc.ModeDesc.Height, 48u);
  DXGI_OUTPUT_DESC outputDesc{};
  ASSERT_EQ(target.output->GetDesc(&outputDesc), S_OK);
  EXPECT_EQ(outputDesc.DesktopCoordinates.right - outputDesc.DesktopCoordinates.left, 64);
  EXPECT_EQ(outputDesc.DesktopCoordinates.bottom - outputDesc.DesktopCoordinates.top, 48);
  Acquired fresh = acquire(duplication.get(), 100);
  ASSERT_EQ(fresh.hr, S_OK);
  EXPECT_EQ(pixelsOf(fresh.resource.get()), std::vector<uint32_t>(64 * 48, kRed));
  ASSERT_EQ(duplication->ReleaseFrame(), S_OK);
  fresh = {};

  control::switchDesktop();
  EXPECT_EQ(acquire(duplication.get(), 100).hr, DXGI_ERROR_ACCESS_LOST);
}

TEST_F(DesktopDuplicationTest, OneLiveDuplicationPerOutputOnTheOutputsOwnAdapter) {
  control::setMachine(machineOf({adapter(0x8086, 0x1, 2), adapter(0x10DE, 0x2, 1)}));
  DuplicationTarget first = duplicationTarget(0, 0);
  DuplicationTarget second = duplicationTarget(0, 1);
  DuplicationTarget other = duplicationTarget(1, 0);

  CountedRef<IDXGIOutputDuplication> a;
  ASSERT_EQ(first.output->DuplicateOutput(first.d3d.device.get(), a.put()), S_OK);
  CountedRef<IDXGIOutputDuplication> again;
  EXPECT_EQ(first.output->DuplicateOutput(second.d3d.device.get(), again.put()), E_INVALIDARG);
  EXPECT_FALSE(again);
  // Another output of the same adapter is free.
  CountedRef<IDXGIOutputDuplication> b;
  EXPECT_EQ(second.output->DuplicateOutput(second.d3d.device.get(), b.put()), S_OK);
  // A device of the other adapter can't duplicate this one's outputs.
  CountedRef<IDXGIOutputDuplication> foreign;
  EXPECT_EQ(other.output->DuplicateOutput(first.d3d.device.get(), foreign.put()), E_INVALIDARG);
  EXPECT_EQ(control::liveObjectCount("IDXGIOutputDuplication"), 2);

  a.reset();
  EXPECT_EQ(first.output->DuplicateOutput(first.d3d.device.get(), again.put()), S_OK);
  EXPECT_EQ(control::liveObjectCount("IDXGIOutputDuplication"), 2);
}

TEST_F(DesktopDuplicationTest, EveryCallPassesTheFaultPlanUnderItsName) {
  CountedRef<IDXGIOutputDuplication> duplication;
  control::failOnce("IDXGIOutput1::DuplicateOutput", DXGI_ERROR_UNSUPPORTED);
  EXPECT_EQ(target.output->DuplicateOutput(target.d3d.device.get(), duplication.put()), DXGI_ERROR_UNSUPPORTED);
  duplication = duplicate();
  ASSERT_TRUE(duplication);

  CountedRef<IDXGIObject> object;
  EXPECT_EQ(object.queryFrom(duplication.get()), S_OK);
  CountedRef<IDXGIOutputDuplication> same;
  EXPECT_EQ(same.queryFrom(object.get()), S_OK);
  EXPECT_EQ(control::callCount("QueryInterface(IDXGIOutputDuplication)"), 1u);

  control::failOnce("IDXGIOutputDuplication::AcquireNextFrame", E_OUTOFMEMORY);
  EXPECT_EQ(acquire(duplication.get(), 10).hr, E_OUTOFMEMORY);
  ASSERT_EQ(acquire(duplication.get(), 100).hr, S_OK);
  control::failOnce("IDXGIOutputDuplication::ReleaseFrame", E_FAIL);
  EXPECT_EQ(duplication->ReleaseFrame(), E_FAIL);
  EXPECT_EQ(duplication->ReleaseFrame(), S_OK);
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::AcquireNextFrame"), 2u);
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::ReleaseFrame"), 2u);
  DXGI_OUTDUPL_DESC desc{};
  duplication->GetDesc(&desc);
  EXPECT_EQ(control::callCount("IDXGIOutputDuplication::GetDesc"), 1u);
  EXPECT_EQ(control::liveObjectCount("IDXGIOutputDuplication"), 1);
}

}  // namespace
