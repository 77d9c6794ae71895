// WgcWindowCapture through its CaptureSource operations, on synthetic windows; failure paths
// through the platform's fault plan.
#include <gtest/gtest.h>
#include <objbase.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "capture/wgc_window_capture.h"

#include "capture/frame_arrived_handler.h"
#include "platform/control/clock_control.h"
#include "platform/control/com_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"
#include "support/failure.h"
#include "test/support/window_capture_helpers.h"

namespace control = platform::control;
using namespace std::chrono_literals;
using testing_support::bgra;
using testing_support::waitForFrame;
using testing_support::windowOptions;

namespace {

const std::string kNotWindowKind = "[kestrane-win][error] WGC capture requires window target\n";
const std::string kInvalidHandle = "[kestrane-win][error] Invalid capture window handle\n";
const std::string kInitFailed = "[kestrane-win][error] WGC initialize failed\n";
const std::string kStopFailed = "[kestrane-win][error] WGC stop failed\n";

const uint32_t kRed = bgra(220, 20, 30);
const uint32_t kBlue = bgra(10, 40, 200);
const uint32_t kGreen = bgra(30, 200, 60);

class WindowCapture : public testing_support::WindowCaptureTest {
 protected:
  std::unique_ptr<WgcWindowCapture> started(uint64_t window) {
    auto source = std::make_unique<WgcWindowCapture>();
    EXPECT_TRUE(source->init(&d3d, windowOptions(window)));
    return source;
  }

  // Every pixel of `texture`, which is `width` wide, against what `expected` says of (x, y).
  template <class Expected>
  void expectPixels(ID3D11Texture2D* texture, Expected expected) {
    std::vector<uint32_t> pixels = pixelsOf(texture);
    uint32_t width = widthOf(texture);
    size_t wrong = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
      if (pixels[i] != expected(uint32_t(i % width), uint32_t(i / width))) ++wrong;
    EXPECT_EQ(wrong, 0u) << "pixels that differ from what was drawn";
  }
};

TEST_F(WindowCapture, InitRefusesAnotherKindAndHandlesThatNameNoWindowWithoutOpeningAnything) {
  uint64_t closed = control::openWindow(16, 16, kRed);
  control::closeWindow(closed);
  StartOptions screen = windowOptions(control::openWindow(16, 16, kRed));
  screen.captureKind = CaptureKind::Screen;
  struct Case {
    StartOptions options;
    std::string line;
  };
  for (const Case& c : {Case{screen, kNotWindowKind}, Case{windowOptions(0), kInvalidHandle},
                        Case{windowOptions(closed), kInvalidHandle}, Case{windowOptions(0x7fffffff), kInvalidHandle}}) {
    control::clearDebugOutput();
    control::resetCallCounts();
    {
      WgcWindowCapture source;
      EXPECT_FALSE(source.init(&d3d, c.options));
      CountedRef<ID3D11Texture2D> texture;
      int64_t timestamp = 0;
      EXPECT_FALSE(source.acquireFrame(texture, timestamp));
    }
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{c.line});
    EXPECT_EQ(control::callCount("CoInitializeEx"), 0u) << "nothing is opened before the handle is checked";
    EXPECT_EQ(control::threadApartmentCount(), 0);
  }
  EXPECT_TRUE(threadLastFailure.empty()) << "window capture's failures reach the session as its general text";
}

TEST_F(WindowCapture, ThePointerIsLeftOutOfTheFrames) {
  uint64_t window = control::openWindow(16, 16, kRed);
  const uint64_t withCursorBefore = control::capturesStartedWithCursor();
  auto source = started(window);
  EXPECT_EQ(control::callCount("IGraphicsCaptureSession::StartCapture"), 1u);
  EXPECT_EQ(control::capturesStartedWithCursor(), withCursorBefore) << "cursor capture was switched off first";
}

TEST_F(WindowCapture, AStillWindowGivesOneFirstFrameThenNothingUntilItChanges) {
  uint64_t window = control::openWindow(64, 48, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(widthOf(texture.get()), 64u);
  EXPECT_EQ(heightOf(texture.get()), 48u);
  expectPixels(texture.get(), [](uint32_t, uint32_t) { return kRed; });
  EXPECT_FALSE(testing_support::anyFrameWithin(*source, 150ms)) << "nothing repeats while the window stands still";

  ID3D11Texture2D* first = texture.get();
  control::drawWindowRect(window, 8, 4, 10, 20, kBlue);
  CountedRef<ID3D11Texture2D> next = texture;  // the frame loop's reference doesn't block the copy
  ASSERT_TRUE(waitForFrame(*source, next, timestamp));
  EXPECT_EQ(next.get(), first) << "the source reuses its own texture";
  expectPixels(next.get(), [](uint32_t x, uint32_t y) { return x >= 8 && x < 18 && y >= 4 && y < 24 ? kBlue : kRed; });

  D3D11_TEXTURE2D_DESC desc = {};
  next->GetDesc(&desc);
  EXPECT_EQ(desc.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
  EXPECT_EQ(desc.Usage, D3D11_USAGE_DEFAULT);
  EXPECT_EQ(desc.BindFlags, UINT(D3D11_BIND_SHADER_RESOURCE));
  EXPECT_EQ(desc.CPUAccessFlags, 0u);
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{});
}

TEST_F(WindowCapture, FramesArriveFromAnotherThreadWhileTheWorkerAsksForNothing) {
  uint64_t window = control::openWindow(32, 32, kGreen);
  auto source = started(window);
  // The worker never waits or pumps: only a thread of the platform can have set frameReady.
  std::this_thread::sleep_for(100ms);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  EXPECT_TRUE(source->acquireFrame(texture, timestamp));
  EXPECT_FALSE(source->acquireFrame(texture, timestamp)) << "one event, one frame";
}

TEST_F(WindowCapture, AnEventDuringTheCopyIsWipedAndItsFrameComesOutOneEventLater) {
  uint64_t window = control::openWindow(16, 16, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));

  control::fillWindow(window, kGreen);
  std::this_thread::sleep_for(50ms);  // the green frame waits in the pool, the flag is set
  control::delayCall("ID3D11DeviceContext::CopyResource", 200, 1);
  std::thread painter([&] {
    std::this_thread::sleep_for(60ms);
    control::fillWindow(window, kBlue);  // its FrameArrived comes while the green frame is copied
  });
  ASSERT_TRUE(source->acquireFrame(texture, timestamp));
  painter.join();
  EXPECT_EQ(pixelsOf(texture.get())[0], kGreen);
  EXPECT_FALSE(testing_support::anyFrameWithin(*source, 100ms)) << "the blue frame's event was wiped";

  control::fillWindow(window, kRed);
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(pixelsOf(texture.get())[0], kBlue) << "the waiting frame comes out with the next event";
}

TEST_F(WindowCapture, AResizedWindowKeepsTheBufferSizeAndIsClipped) {
  uint64_t window = control::openWindow(40, 30, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  ID3D11Texture2D* first = texture.get();

  // Wider and shorter: the right part is cut off, the rows below the window are empty.
  control::resizeWindow(window, 60, 20);
  control::fillWindow(window, kBlue);
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(texture.get(), first);
  EXPECT_EQ(widthOf(texture.get()), 40u);
  EXPECT_EQ(heightOf(texture.get()), 30u);
  expectPixels(texture.get(), [](uint32_t, uint32_t y) { return y < 20 ? kBlue : 0u; });

  control::resizeWindow(window, 10, 50);
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  expectPixels(texture.get(), [](uint32_t x, uint32_t) { return x < 10 ? kBlue : 0u; });
}

TEST_F(WindowCapture, ADestroyedWindowStopsFramesAndTheSourceStaysSound) {
  uint64_t window = control::openWindow(32, 24, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  control::drawWindowRect(window, 0, 0, 4, 4, kBlue);
  control::closeWindow(window);
  // A change drawn just before the close may still come; after it nothing does.
  testing_support::anyFrameWithin(*source, 50ms);
  EXPECT_FALSE(testing_support::anyFrameWithin(*source, 150ms));
  texture.reset();
  source.reset();
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{});
}

TEST_F(WindowCapture, TimestampsAreTheCounterIn100nsTicksForAnyCounterValue) {
  uint64_t window = control::openWindow(8, 8, kRed);
  auto source = started(window);
  struct Clock {
    int64_t frequency;
    int64_t counter;
  };
  // 10 MHz near the top of the range, the old 3.579545 MHz timer where counter * 10^7 has long
  // left 64 bits, and a fast counter.
  for (Clock clock : {Clock{10000000, INT64_MAX - 1000000000}, Clock{3579545, 3000000000000000000},
                      Clock{2400000000, 9000000000000000000}}) {
    control::setPerformanceCounter(clock.frequency, clock.counter);
    auto ticks = [&] {
      LARGE_INTEGER counter = {};
      QueryPerformanceCounter(&counter);
      return uint64_t((unsigned __int128)uint64_t(counter.QuadPart) * 10000000u / uint64_t(clock.frequency));
    };
    control::drawWindowRect(window, 0, 0, 1, 1, bgra(uint8_t(clock.frequency), 0, 0));
    CountedRef<ID3D11Texture2D> texture;
    int64_t timestamp = 0;
    uint64_t before = ticks();
    ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
    uint64_t after = ticks();
    EXPECT_GE(uint64_t(timestamp), before) << clock.frequency;
    EXPECT_LE(uint64_t(timestamp), after) << clock.frequency;
  }

  // Without a positive frequency the frame has no time.
  control::failOnce("QueryPerformanceFrequency", FALSE);
  control::drawWindowRect(window, 0, 0, 1, 1, kBlue);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = -1;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  EXPECT_EQ(timestamp, 0);
}

TEST_F(WindowCapture, EveryFailingStepOfInitLogsOneLineAndReleasesWhatWasMade) {
  const HRESULT kFailure = E_OUTOFMEMORY;
  struct Case {
    const char* call;
    int64_t value;
  };
  const Case cases[] = {
      {"CoInitializeEx", RPC_E_CHANGED_MODE},
      {"WindowsCreateString", kFailure},
      {"RoGetActivationFactory", REGDB_E_CLASSNOTREG},
      {"IGraphicsCaptureItemInterop::CreateForWindow", E_INVALIDARG},
      {"IGraphicsCaptureItem::get_Size", kFailure},
      {"QueryInterface(IDXGIDevice)", E_NOINTERFACE},
      {"LoadLibraryW", 0},
      {"GetProcAddress", 0},
      {"CreateDirect3D11DeviceFromDXGIDevice", kFailure},
      {"QueryInterface(IDirect3DDevice)", E_NOINTERFACE},
      {"IDirect3D11CaptureFramePoolStatics::Create", E_INVALIDARG},
      {"IDirect3D11CaptureFramePool::CreateCaptureSession", kFailure},
      {"QueryInterface(IGraphicsCaptureSession2)", E_NOINTERFACE},
      {"IGraphicsCaptureSession2::put_IsCursorCaptureEnabled", kFailure},
      {"IDirect3D11CaptureFramePool::add_FrameArrived", kFailure},
      {"IGraphicsCaptureSession::StartCapture", kFailure},
  };
  uint64_t window = control::openWindow(16, 16, kRed);
  const int64_t baseline = control::totalLiveObjects();
  for (const Case& c : cases) {
    control::clearDebugOutput();
    control::failOnce(c.call, c.value);
    {
      WgcWindowCapture source;
      EXPECT_FALSE(source.init(&d3d, windowOptions(window))) << c.call;
      EXPECT_FALSE(testing_support::anyFrameWithin(source, 20ms)) << c.call;
    }
    EXPECT_EQ(control::callCount(c.call) > 0, true) << c.call;
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{kInitFailed}) << c.call;
    EXPECT_EQ(control::totalLiveObjects(), baseline) << c.call;
    EXPECT_EQ(control::liveStringCount(), 0) << c.call;
    control::clearFaults();
  }
  EXPECT_TRUE(threadLastFailure.empty());
}

TEST_F(WindowCapture, AFailedFetchOrCopyCostsOneFrameAndLeavesTheCallersSlotAlone) {
  uint64_t window = control::openWindow(16, 16, kRed);
  for (const char* call : {"IDirect3D11CaptureFramePool::TryGetNextFrame", "IDirect3D11CaptureFrame::get_Surface",
                           "QueryInterface(IDirect3DDxgiInterfaceAccess)", "IDirect3DDxgiInterfaceAccess::GetInterface",
                           "ID3D11Device::CreateTexture2D"}) {
    auto source = started(window);
    control::resetCallCounts();
    control::failOnce(call, E_OUTOFMEMORY);
    CountedRef<ID3D11Texture2D> texture;
    int64_t timestamp = 0;
    auto deadline = std::chrono::steady_clock::now() + 2s;
    while (control::callCount(call) == 0 && std::chrono::steady_clock::now() < deadline) {
      EXPECT_FALSE(source->acquireFrame(texture, timestamp)) << call;
      std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(control::callCount(call), 1u) << call;
    EXPECT_FALSE(texture) << call;
    EXPECT_EQ(timestamp, 0) << call;
    // The flag was cleared with the failure: the next frame waits for the next change.
    EXPECT_FALSE(testing_support::anyFrameWithin(*source, 50ms)) << call;
    control::drawWindowRect(window, 0, 0, 2, 2, kBlue);
    EXPECT_TRUE(waitForFrame(*source, texture, timestamp)) << call;
  }
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{}) << "capture failures are never reported";
}

TEST_F(WindowCapture, AStopFailureIsLoggedAndNothingOutlivesTheSource) {
  uint64_t window = control::openWindow(16, 16, kRed);
  auto source = started(window);
  CountedRef<ID3D11Texture2D> texture;
  int64_t timestamp = 0;
  ASSERT_TRUE(waitForFrame(*source, texture, timestamp));
  control::failOnce("IClosable::Close", E_FAIL);
  control::clearDebugOutput();
  source.reset();
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{kStopFailed});
  // The session refused to close, so the pool wasn't asked; releasing both ended the capture.
  EXPECT_EQ(control::callCount("IClosable::Close"), 1u);
  texture.reset();
  EXPECT_EQ(control::liveObjectCount("IDirect3D11CaptureFramePool"), 0);
  EXPECT_EQ(control::liveObjectCount("IGraphicsCaptureSession"), 0);
}

TEST_F(WindowCapture, TheSourceLeavesTheApartmentItEnteredAndGivesBackStringsAndObjects) {
  uint64_t window = control::openWindow(16, 16, kRed);
  const int processBefore = control::processApartmentCount();
  const int64_t objectsBefore = control::totalLiveObjects();
  std::thread worker([&] {
    {
      auto source = started(window);
      CountedRef<ID3D11Texture2D> texture;
      int64_t timestamp = 0;
      EXPECT_TRUE(waitForFrame(*source, texture, timestamp));
      EXPECT_EQ(control::liveStringCount(), 0) << "class names are deleted after activation";
      EXPECT_EQ(control::threadApartmentCount(), 1) << "init enters the multithreaded apartment once";
    }
    EXPECT_EQ(control::threadApartmentCount(), 0) << "and the source's end leaves it";
  });
  worker.join();
  EXPECT_EQ(control::processApartmentCount(), processBefore);
  EXPECT_EQ(control::totalLiveObjects(), objectsBefore);
}

TEST_F(WindowCapture, SourcesComeAndGoWhileTheWindowChangesWithoutLeaksOrLateHandlers) {
  uint64_t window = control::openWindow(48, 32, kRed);
  const int64_t baseline = control::totalLiveObjects();
  std::atomic<bool> drawing{true};
  std::thread painter([&] {
    for (uint32_t i = 0; drawing.load(); ++i) {
      control::drawWindowRect(window, int32_t(i % 40), 0, 8, 8, bgra(uint8_t(i), 0, 0));
      std::this_thread::sleep_for(200us);
    }
  });
  for (int cycle = 0; cycle < 25; ++cycle) {
    auto source = started(window);
    CountedRef<ID3D11Texture2D> texture;
    int64_t timestamp = 0;
    EXPECT_TRUE(waitForFrame(*source, texture, timestamp));
    if (cycle % 2 == 0) {
      EXPECT_TRUE(waitForFrame(*source, texture, timestamp));
    }
  }
  drawing.store(false);
  painter.join();
  EXPECT_EQ(control::totalLiveObjects(), baseline);
  EXPECT_EQ(control::debugOutput(), std::vector<std::string>{});
}

TEST_F(WindowCapture, TheFrameArrivedHandlerIsAgileAndMarshalsThroughOneFreeThreadedMarshaler) {
  auto frameReady = std::make_shared<std::atomic<bool>>(false);
  auto* handler = new FrameArrivedHandler(frameReady);
  CountedRef<IAgileObject> agile;
  EXPECT_EQ(agile.queryFrom(handler), S_OK);
  CountedRef<FrameArrivedDelegate> delegate;
  EXPECT_EQ(delegate.queryFrom(agile.get()), S_OK);
  EXPECT_EQ(delegate.get(), handler);

  control::failOnce("CoCreateFreeThreadedMarshaler", E_OUTOFMEMORY);
  CountedRef<IMarshal> marshal;
  EXPECT_EQ(marshal.queryFrom(handler), E_OUTOFMEMORY);
  EXPECT_EQ(marshal.queryFrom(handler), S_OK);
  CountedRef<IMarshal> again;
  EXPECT_EQ(again.queryFrom(handler), S_OK);
  EXPECT_EQ(control::callCount("CoCreateFreeThreadedMarshaler"), 2u) << "made on demand, then kept";
  // The marshaler is aggregated: its IMarshal counts on the handler and leads back to it.
  EXPECT_EQ(testing_support::referenceCount(static_cast<FrameArrivedDelegate*>(handler)), 5u);
  CountedRef<IUnknown> identity;
  EXPECT_EQ(identity.queryFrom(marshal.get()), S_OK);
  EXPECT_EQ(identity.get(), static_cast<IUnknown*>(static_cast<FrameArrivedDelegate*>(handler)));

  // The flag is the handler's as much as the capture's: an Invoke that comes after the capture
  // went (in flight during teardown, or from a pool that would not close) writes into live memory.
  std::weak_ptr<std::atomic<bool>> flag = frameReady;
  frameReady.reset();
  EXPECT_EQ(handler->Invoke(nullptr, nullptr), S_OK);
  ASSERT_FALSE(flag.expired());
  EXPECT_TRUE(flag.lock()->load());
  identity.reset();
  again.reset();
  marshal.reset();
  delegate.reset();
  agile.reset();
  EXPECT_EQ(handler->Release(), 0u);
  EXPECT_TRUE(flag.expired()) << "the last reference frees the shared flag";
  EXPECT_EQ(control::liveObjectCount("IMarshal"), 0);
}

}  // namespace
