// The platform's Windows.Graphics.Capture as Windows answers it: activation, items for windows,
// the Direct3D interop objects, a frame pool's buffers and events, and closing while a handler
// runs.
#include <gtest/gtest.h>
#include <objbase.h>
#include <roapi.h>
#include <winstring.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cwchar>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/control/com_control.h"
#include "platform/control/platform_control.h"
#include "platform/control/window_control.h"
#include "test/support/window_capture_helpers.h"
#include "windows.graphics.capture.h"
#include "windows.graphics.capture.interop.h"
#include "windows.graphics.directx.direct3d11.interop.h"

namespace control = platform::control;
using namespace std::chrono_literals;
using ABI::Windows::Foundation::IClosable;
using ABI::Windows::Graphics::SizeInt32;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFrame;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool;
using ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePoolStatics;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureItem;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession;
using ABI::Windows::Graphics::Capture::IGraphicsCaptureSession2;
using ABI::Windows::Graphics::DirectX::DirectXPixelFormat_B8G8R8A8UIntNormalized;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DDevice;
using ABI::Windows::Graphics::DirectX::Direct3D11::IDirect3DSurface;
using testing_support::bgra;
using ::Windows::Graphics::DirectX::Direct3D11::IDirect3DDxgiInterfaceAccess;
using FrameArrived =
    ABI::Windows::Foundation::ITypedEventHandler<ABI::Windows::Graphics::Capture::Direct3D11CaptureFramePool*,
                                                 IInspectable*>;

namespace {

const uint32_t kRed = bgra(200, 0, 0);
const uint32_t kBlue = bgra(0, 0, 200);

// A FrameArrived subscriber that counts its calls and the threads they come on; `during` runs
// inside each call.
class RecordingHandler final : public FrameArrived {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (riid != IID_IUnknown && riid != __uuidof(FrameArrived)) {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    *ppv = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }  // lives on the test's stack
  HRESULT STDMETHODCALLTYPE Invoke(IDirect3D11CaptureFramePool* sender, IInspectable* args) override {
    {
      std::lock_guard<std::mutex> lock(mutex);
      threads.push_back(std::this_thread::get_id());
      senderSeen = sender;
      argsSeen = args;
      entered = true;
    }
    changed.notify_all();
    if (during) during();
    std::lock_guard<std::mutex> lock(mutex);
    ++finished;
    changed.notify_all();
    return S_OK;
  }

  bool waitForCalls(size_t count, std::chrono::milliseconds limit = 2000ms) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [&] { return size_t(finished) >= count; });
  }
  bool waitUntilEntered() {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, 2000ms, [&] { return entered; });
  }
  int calls() {
    std::lock_guard<std::mutex> lock(mutex);
    return finished;
  }

  std::atomic<ULONG> references{1};
  std::function<void()> during;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::thread::id> threads;
  IDirect3D11CaptureFramePool* senderSeen = nullptr;
  IInspectable* argsSeen = reinterpret_cast<IInspectable*>(1);
  bool entered = false;
  int finished = 0;
};

template <class Factory>
HRESULT activate(const wchar_t* className, CountedRef<Factory>& factory) {
  HSTRING name = nullptr;
  HRESULT hr = WindowsCreateString(className, UINT32(std::wcslen(className)), &name);
  if (FAILED(hr)) return hr;
  hr = RoGetActivationFactory(name, __uuidof(Factory), factory.putVoid());
  WindowsDeleteString(name);
  return hr;
}

class WgcPlatform : public testing_support::WindowCaptureTest {
 protected:
  void SetUp() override {
    WindowCaptureTest::SetUp();
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
  }

  CountedRef<IDirect3DDevice> wrappedDevice() {
    CountedRef<IDXGIDevice> dxgi;
    EXPECT_EQ(dxgi.queryFrom(d3d.device.get()), S_OK);
    CountedRef<IInspectable> inspectable;
    EXPECT_EQ(CreateDirect3D11DeviceFromDXGIDevice(dxgi.get(), inspectable.put()), S_OK);
    CountedRef<IDirect3DDevice> device;
    EXPECT_EQ(device.queryFrom(inspectable.get()), S_OK);
    return device;
  }

  CountedRef<IGraphicsCaptureItem> itemFor(uint64_t window, HRESULT expected = S_OK) {
    CountedRef<IGraphicsCaptureItemInterop> interop;
    EXPECT_EQ(activate(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem, interop), S_OK);
    CountedRef<IGraphicsCaptureItem> item;
    EXPECT_EQ(interop->CreateForWindow(reinterpret_cast<HWND>(window), __uuidof(IGraphicsCaptureItem), item.putVoid()),
              expected);
    return item;
  }

  CountedRef<IDirect3D11CaptureFramePool> poolOf(SizeInt32 size, INT32 buffers = 3) {
    CountedRef<IDirect3D11CaptureFramePoolStatics> statics;
    EXPECT_EQ(activate(RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool, statics), S_OK);
    CountedRef<IDirect3D11CaptureFramePool> pool;
    EXPECT_EQ(
        statics->Create(wrappedDevice().get(), DirectXPixelFormat_B8G8R8A8UIntNormalized, buffers, size, pool.put()),
        S_OK);
    return pool;
  }

  // A running capture of `window` at its size with `handler` subscribed.
  struct Capture {
    CountedRef<IGraphicsCaptureItem> item;
    CountedRef<IDirect3D11CaptureFramePool> pool;
    CountedRef<IGraphicsCaptureSession> session;
  };
  Capture capture(uint64_t window, RecordingHandler& handler) {
    Capture c;
    c.item = itemFor(window);
    SizeInt32 size = {};
    EXPECT_EQ(c.item->get_Size(&size), S_OK);
    c.pool = poolOf(size);
    EXPECT_EQ(c.pool->CreateCaptureSession(c.item.get(), c.session.put()), S_OK);
    EventRegistrationToken token = {};
    EXPECT_EQ(c.pool->add_FrameArrived(&handler, &token), S_OK);
    EXPECT_EQ(c.session->StartCapture(), S_OK);
    return c;
  }

  static HRESULT closeOf(IUnknown* object) {
    CountedRef<IClosable> closable;
    HRESULT hr = closable.queryFrom(object);
    return FAILED(hr) ? hr : closable->Close();
  }

  CountedRef<ID3D11Texture2D> textureOf(IDirect3D11CaptureFrame* frame) {
    CountedRef<IDirect3DSurface> surface;
    EXPECT_EQ(frame->get_Surface(surface.put()), S_OK);
    CountedRef<IDirect3DDxgiInterfaceAccess> access;
    EXPECT_EQ(access.queryFrom(surface.get()), S_OK);
    CountedRef<ID3D11Texture2D> texture;
    EXPECT_EQ(access->GetInterface(__uuidof(ID3D11Texture2D), texture.putVoid()), S_OK);
    return texture;
  }
};

TEST_F(WgcPlatform, ActivationNeedsTheCallersApartmentAndAKnownClass) {
  HRESULT withoutCom = S_OK;
  std::thread([&] {
    CountedRef<IGraphicsCaptureItemInterop> interop;
    withoutCom = activate(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem, interop);
  }).join();
  EXPECT_EQ(withoutCom, CO_E_NOTINITIALIZED);

  CountedRef<IDirect3D11CaptureFramePoolStatics> unknown;
  EXPECT_EQ(activate(L"Windows.Graphics.Capture.NoSuchClass", unknown), REGDB_E_CLASSNOTREG);

  // Each factory answers its own interface and IAgileObject, and nothing of the other's.
  CountedRef<IGraphicsCaptureItemInterop> interop;
  EXPECT_EQ(activate(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem, interop), S_OK);
  CountedRef<IDirect3D11CaptureFramePoolStatics> wrong;
  EXPECT_EQ(activate(RuntimeClass_Windows_Graphics_Capture_GraphicsCaptureItem, wrong), E_NOINTERFACE);
  CountedRef<IAgileObject> agile;
  EXPECT_EQ(agile.queryFrom(interop.get()), S_OK);
  EXPECT_EQ(control::callCount("QueryInterface(IGraphicsCaptureItemInterop)"), 1u);
  EXPECT_EQ(control::callCount("QueryInterface(IDirect3D11CaptureFramePoolStatics)"), 1u);
}

TEST_F(WgcPlatform, ItemsAreMadeForWindowsOnlyAndTheirSizeFollowsTheWindow) {
  uint64_t window = control::openWindow(120, 80, kRed);
  uint64_t closed = control::openWindow(10, 10, kRed);
  control::closeWindow(closed);
  EXPECT_FALSE(itemFor(0, E_INVALIDARG));
  EXPECT_FALSE(itemFor(closed, E_INVALIDARG));
  EXPECT_FALSE(itemFor(0x1234, E_INVALIDARG));
  EXPECT_TRUE(IsWindow(reinterpret_cast<HWND>(window)));
  EXPECT_FALSE(IsWindow(reinterpret_cast<HWND>(closed)));

  CountedRef<IGraphicsCaptureItem> item = itemFor(window);
  SizeInt32 size = {};
  ASSERT_EQ(item->get_Size(&size), S_OK);
  EXPECT_EQ(size.Width, 120);
  EXPECT_EQ(size.Height, 80);
  control::resizeWindow(window, 300, 200);
  ASSERT_EQ(item->get_Size(&size), S_OK);
  EXPECT_EQ(size.Width, 300);
  control::closeWindow(window);
  ASSERT_EQ(item->get_Size(&size), S_OK);
  EXPECT_EQ(size.Height, 200) << "a window that has gone keeps its last size";
}

TEST_F(WgcPlatform, TheDeviceWrapperHoldsTheDeviceAndReachesItOnlyThroughInterfaceAccess) {
  ULONG before = testing_support::referenceCount(d3d.device.get());
  {
    // Found as the add-on finds it.
    HMODULE library = LoadLibraryW(L"D3D11.DLL");
    ASSERT_NE(library, nullptr);
    auto create = reinterpret_cast<PFN_CreateDirect3D11DeviceFromDXGIDevice>(
        reinterpret_cast<void*>(GetProcAddress(library, "CreateDirect3D11DeviceFromDXGIDevice")));
    ASSERT_NE(create, nullptr);
    EXPECT_EQ(FreeLibrary(library), TRUE);
    CountedRef<IDXGIDevice> dxgi;
    ASSERT_EQ(dxgi.queryFrom(d3d.device.get()), S_OK);
    CountedRef<IInspectable> wrapper;
    EXPECT_EQ(create(nullptr, wrapper.put()), E_INVALIDARG);
    ASSERT_EQ(create(dxgi.get(), wrapper.put()), S_OK);
    dxgi.reset();
    EXPECT_EQ(testing_support::referenceCount(d3d.device.get()), before + 1);

    CountedRef<ID3D11Device> direct;
    EXPECT_EQ(direct.queryFrom(wrapper.get()), E_NOINTERFACE);
    CountedRef<IDirect3DDxgiInterfaceAccess> access;
    ASSERT_EQ(access.queryFrom(wrapper.get()), S_OK);
    ASSERT_EQ(access->GetInterface(__uuidof(ID3D11Device), direct.putVoid()), S_OK);
    EXPECT_EQ(direct.get(), d3d.device.get());
  }
  EXPECT_EQ(testing_support::referenceCount(d3d.device.get()), before);
}

TEST_F(WgcPlatform, CreateRefusesWhatNoPoolCanBe) {
  CountedRef<IDirect3D11CaptureFramePoolStatics> statics;
  ASSERT_EQ(activate(RuntimeClass_Windows_Graphics_Capture_Direct3D11CaptureFramePool, statics), S_OK);
  CountedRef<IDirect3DDevice> device = wrappedDevice();
  CountedRef<IDirect3D11CaptureFramePool> pool;
  const auto bgraFormat = DirectXPixelFormat_B8G8R8A8UIntNormalized;
  EXPECT_EQ(statics->Create(nullptr, bgraFormat, 3, {64, 64}, pool.put()), E_INVALIDARG);
  EXPECT_EQ(statics->Create(device.get(), bgraFormat, 0, {64, 64}, pool.put()), E_INVALIDARG);
  EXPECT_EQ(statics->Create(device.get(), bgraFormat, 3, {0, 64}, pool.put()), E_INVALIDARG);
  EXPECT_EQ(statics->Create(device.get(), bgraFormat, 3, {64, -1}, pool.put()), E_INVALIDARG);
  EXPECT_EQ(statics->Create(device.get(), ABI::Windows::Graphics::DirectX::DirectXPixelFormat_Unknown, 3, {64, 64},
                            pool.put()),
            E_INVALIDARG);
  EXPECT_FALSE(pool);
}

TEST_F(WgcPlatform, AStillWindowGivesOneFrameAndEachChangeAnotherOnThePoolsThread) {
  uint64_t window = control::openWindow(64, 32, kRed);
  RecordingHandler handler;
  Capture c = capture(window, handler);
  ASSERT_TRUE(handler.waitForCalls(1));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(handler.calls(), 1);
  control::drawWindowRect(window, 0, 0, 8, 8, kBlue);
  ASSERT_TRUE(handler.waitForCalls(2));
  for (std::thread::id thread : handler.threads) EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_EQ(handler.senderSeen, c.pool.get());
  EXPECT_EQ(handler.argsSeen, nullptr);

  // Frames come out oldest first, each once; then the pool answers S_OK and null.
  CountedRef<IDirect3D11CaptureFrame> first, second, none;
  ASSERT_EQ(c.pool->TryGetNextFrame(first.put()), S_OK);
  ASSERT_EQ(c.pool->TryGetNextFrame(second.put()), S_OK);
  EXPECT_EQ(c.pool->TryGetNextFrame(none.put()), S_OK);
  EXPECT_FALSE(none);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(pixelsOf(textureOf(first.get()).get())[0], kRed);
  EXPECT_EQ(pixelsOf(textureOf(second.get()).get())[0], kBlue);
  ABI::Windows::Foundation::TimeSpan t1 = {}, t2 = {};
  first->get_SystemRelativeTime(&t1);
  second->get_SystemRelativeTime(&t2);
  EXPECT_LT(t1.Duration, t2.Duration);
}

TEST_F(WgcPlatform, AllBuffersOutHoldsChangesBackUntilAFramesLastReleaseReturnsOne) {
  uint64_t window = control::openWindow(16, 16, kRed);
  RecordingHandler handler;
  Capture c = capture(window, handler);
  std::vector<CountedRef<IDirect3D11CaptureFrame>> held;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(handler.waitForCalls(size_t(i) + 1));
    ASSERT_EQ(c.pool->TryGetNextFrame(held.emplace_back().put()), S_OK);
    ASSERT_TRUE(held.back());
    control::fillWindow(window, bgra(uint8_t(i + 1), 0, 0));
  }
  control::fillWindow(window, kBlue);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(handler.calls(), 3) << "no buffer is free";
  CountedRef<IDirect3D11CaptureFrame> none;
  EXPECT_EQ(c.pool->TryGetNextFrame(none.put()), S_OK);
  EXPECT_FALSE(none);

  // The surface and its texture outlive nothing of the buffer: only the frame holds it.
  CountedRef<ID3D11Texture2D> kept = textureOf(held[0].get());
  held[0].reset();
  ASSERT_TRUE(handler.waitForCalls(4));
  CountedRef<IDirect3D11CaptureFrame> latest;
  ASSERT_EQ(c.pool->TryGetNextFrame(latest.put()), S_OK);
  ASSERT_TRUE(latest);
  CountedRef<ID3D11Texture2D> texture = textureOf(latest.get());
  EXPECT_EQ(texture.get(), kept.get()) << "the returned buffer is filled again";
  EXPECT_EQ(pixelsOf(texture.get())[0], kBlue) << "the frame shows the latest content";
}

TEST_F(WgcPlatform, ASurfaceIsNoTextureButReachesTheBuffersTextureOnThePoolsDevice) {
  uint64_t window = control::openWindow(20, 10, kRed);
  RecordingHandler handler;
  Capture c = capture(window, handler);
  ASSERT_TRUE(handler.waitForCalls(1));
  CountedRef<IDirect3D11CaptureFrame> frame;
  ASSERT_EQ(c.pool->TryGetNextFrame(frame.put()), S_OK);
  CountedRef<IDirect3DSurface> surface;
  ASSERT_EQ(frame->get_Surface(surface.put()), S_OK);
  CountedRef<ID3D11Texture2D> direct;
  EXPECT_EQ(direct.queryFrom(surface.get()), E_NOINTERFACE);
  CountedRef<ID3D11Texture2D> texture = textureOf(frame.get());
  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  EXPECT_EQ(desc.Width, 20u);
  EXPECT_EQ(desc.Height, 10u);
  EXPECT_EQ(desc.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
  CountedRef<ID3D11Device> device;
  texture->GetDevice(device.put());
  EXPECT_EQ(device.get(), d3d.device.get());
}

// Close of the session or of the pool, from another thread, while a handler runs.
class WgcCloseDuringInvoke : public WgcPlatform, public testing::WithParamInterface<bool> {};

TEST_P(WgcCloseDuringInvoke, CloseReturnsOnlyAfterTheRunningInvoke) {
  const bool closeSession = GetParam();
  uint64_t window = control::openWindow(16, 16, kRed);
  RecordingHandler handler;
  std::atomic<bool> invokeDone{false};
  handler.during = [&] {
    std::this_thread::sleep_for(150ms);
    invokeDone.store(true);
  };
  Capture c = capture(window, handler);
  ASSERT_TRUE(handler.waitUntilEntered());
  EXPECT_EQ(closeOf(closeSession ? static_cast<IUnknown*>(c.session.get()) : c.pool.get()), S_OK);
  EXPECT_TRUE(invokeDone.load()) << "Close returned while the handler ran";
  int calls = handler.calls();
  control::fillWindow(window, kBlue);
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(handler.calls(), calls) << "no handler runs after Close";
  if (!closeSession) {
    CountedRef<IDirect3D11CaptureFrame> frame;
    EXPECT_EQ(c.pool->TryGetNextFrame(frame.put()), RO_E_CLOSED);
    EXPECT_EQ(c.session->StartCapture(), RO_E_CLOSED);
  }
}

INSTANTIATE_TEST_SUITE_P(SessionOrPool, WgcCloseDuringInvoke, testing::Bool());

TEST_F(WgcPlatform, AHandlerMayCloseItsOwnPool) {
  uint64_t window = control::openWindow(16, 16, kRed);
  RecordingHandler handler;
  IDirect3D11CaptureFramePool* pool = nullptr;
  handler.during = [&] { EXPECT_EQ(closeOf(pool), S_OK); };
  testing_support::runWithin(5s, [&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
      Capture c = capture(window, handler);
      pool = c.pool.get();
      EXPECT_TRUE(handler.waitForCalls(1));
    }
    CoUninitialize();
  });
  EXPECT_EQ(handler.calls(), 1);
}

}  // namespace
