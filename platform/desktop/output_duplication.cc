#include "platform/desktop/output_duplication.h"

#include <algorithm>
#include <chrono>
#include <climits>

#include "platform/core/clock.h"
#include "platform/d3d11/pixel_store.h"

namespace platform::desktop {
namespace {

using Clock = std::chrono::steady_clock;

// The performance counter and the steady clock both run on CLOCK_MONOTONIC; a time past the
// range (a still desktop's next image) is the end of time.
Clock::time_point steadyTimeOf(int64_t qpc) {
  if (qpc >= INT64_MAX / 100) return Clock::time_point::max();
  return Clock::time_point(std::chrono::duration_cast<Clock::duration>(std::chrono::nanoseconds(qpc * 100)));
}

// Waits sleep at most this long at a time, so that an infinite time-out never reaches the clock's
// end of range.
constexpr std::chrono::seconds kLongestSleep{1};

Clock::time_point deadlineAfter(UINT timeoutMs) {
  if (timeoutMs == INFINITE) return Clock::time_point::max();
  return Clock::now() + std::chrono::milliseconds(timeoutMs);
}

// X damage is polled in slices this long, so that a lost duplication ends a wait soon.
constexpr uint32_t kXSliceMs = 4;

D3D11_TEXTURE2D_DESC desktopTextureDesc(uint32_t width, uint32_t height) {
  D3D11_TEXTURE2D_DESC desc{};
  desc.Width = width;
  desc.Height = height;
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc.SampleDesc = {1, 0};
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE;
  return desc;
}

}  // namespace

HRESULT duplicateOutput(dxgi::Output* output, IUnknown* deviceArgument, IDXGIOutputDuplication** out) {
  d3d11::Device* device = d3d11::Device::from(deviceArgument);
  if (device == nullptr || device->adapter() == nullptr) return E_INVALIDARG;
  // Only a device on the adapter that drives the output may duplicate it.
  LUID mine = output->adapter()->luid();
  LUID theirs = device->adapter()->luid();
  if (mine.LowPart != theirs.LowPart || mine.HighPart != theirs.HighPart) return E_INVALIDARG;
  std::shared_ptr<OutputDesktop> desktop = outputDesktop(output->desktopNumber());
  if (desktop == nullptr) return DXGI_ERROR_UNSUPPORTED;
  std::string display;
  {
    std::lock_guard<std::mutex> lock(desktop->mutex);
    // One live duplication per output and process; a released one frees it again.
    if (desktop->duplicated) return E_INVALIDARG;
    desktop->duplicated = true;
    display = desktop->display;
  }
  std::unique_ptr<XScreenGrabber> grabber;
  if (!display.empty()) {
    grabber = XScreenGrabber::open(display);
    std::lock_guard<std::mutex> lock(desktop->mutex);
    if (grabber == nullptr) {
      desktop->duplicated = false;
      return DXGI_ERROR_SESSION_DISCONNECTED;
    }
    if (!desktop->modeSet) {
      desktop->width = grabber->screenWidth();
      desktop->height = grabber->screenHeight();
    }
  }
  handOut(new OutputDuplication(output, device, std::move(desktop), std::move(grabber)), out);
  return S_OK;
}

// What a duplication takes of its desktop when it is made, read under the desktop's lock: a
// mode change may come from another thread at any time.
struct DesktopState {
  uint64_t epoch;
  uint32_t width, height;
  uint64_t pointerUpdates;
};

namespace {

DesktopState stateOf(OutputDesktop& desktop) {
  std::lock_guard<std::mutex> lock(desktop.mutex);
  return {desktop.lossEpoch, desktop.width, desktop.height, desktop.pointerUpdates};
}

}  // namespace

OutputDuplication::OutputDuplication(dxgi::Output* output, d3d11::Device* device,
                                     std::shared_ptr<OutputDesktop> desktop, std::unique_ptr<XScreenGrabber> grabber)
    : OutputDuplication(output, device, desktop, std::move(grabber), stateOf(*desktop)) {}

OutputDuplication::OutputDuplication(dxgi::Output* output, d3d11::Device* device,
                                     std::shared_ptr<OutputDesktop> desktop, std::unique_ptr<XScreenGrabber> grabber,
                                     const DesktopState& state)
    : ComObject("IDXGIOutputDuplication"),
      output(output),
      device(device),
      desktop(std::move(desktop)),
      grabber(std::move(grabber)),
      epoch(state.epoch),
      width(state.width),
      height(state.height),
      seenPointerUpdates(state.pointerUpdates) {
  D3D11_TEXTURE2D_DESC desc = desktopTextureDesc(width, height);
  auto store = std::make_shared<d3d11::PixelStore>(desc, d3d11::layoutFor(desc.Format, width, height));
  image.reset(new d3d11::Texture(device, std::move(store)));
}

void* OutputDuplication::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IDXGIObject || riid == IID_IDXGIOutputDuplication)
    return static_cast<IDXGIOutputDuplication*>(this);
  return nullptr;
}

void OutputDuplication::releaseResources() {
  {
    std::lock_guard<std::mutex> lock(desktop->mutex);
    desktop->duplicated = false;
  }
  grabber.reset();
  image.reset();
  device.reset();
  output.reset();
  privateData.clear();
}

bool OutputDuplication::lost() {
  if (grabber != nullptr && grabber->dead()) return true;
  std::lock_guard<std::mutex> lock(desktop->mutex);
  return desktop->retired || desktop->lossEpoch != epoch;
}

bool OutputDuplication::takePointer(DXGI_OUTDUPL_FRAME_INFO& info) {
  if (desktop->pointerUpdates == seenPointerUpdates) return false;
  seenPointerUpdates = desktop->pointerUpdates;
  info.LastMouseUpdateTime.QuadPart = desktop->pointerTime;
  info.PointerPosition.Position = {desktop->pointerX, desktop->pointerY};
  info.PointerPosition.Visible = TRUE;
  return true;
}

OutputDuplication::Wait OutputDuplication::waitSynthetic(UINT timeoutMs, DXGI_OUTDUPL_FRAME_INFO& info) {
  Clock::time_point deadline = deadlineAfter(timeoutMs);
  std::unique_lock<std::mutex> lock(desktop->mutex);
  for (;;) {
    if (desktop->retired || desktop->lossEpoch != epoch) return Wait::Lost;
    int64_t now = performanceCounterNow();
    uint64_t current = desktop->imageAt(now);
    bool pointer = takePointer(info);
    if (current != seenImage) {
      d3d11::PixelStore& store = image->store();
      {
        std::lock_guard<std::mutex> pixels(store.mutex);
        drawnFrame = desktop->draw(current, store.bytes.data(), store.layout.rowPitch, drawnFrame);
      }
      info.LastPresentTime.QuadPart = desktop->presentTimeOf(current);
      info.AccumulatedFrames = seenImage == 0 ? 1 : UINT(std::min<uint64_t>(current - seenImage, UINT_MAX));
      seenImage = current;
    }
    if (pointer || info.AccumulatedFrames > 0) return Wait::Frame;
    Clock::time_point steadyNow = Clock::now();
    if (steadyNow >= deadline) return Wait::Timeout;
    Clock::time_point wake = std::min({deadline, steadyTimeOf(desktop->nextImageAt(now)), steadyNow + kLongestSleep});
    desktop->changed.wait_until(lock, wake);
  }
}

OutputDuplication::Wait OutputDuplication::waitX(UINT timeoutMs, DXGI_OUTDUPL_FRAME_INFO& info) {
  Clock::time_point deadline = deadlineAfter(timeoutMs);
  bool damaged = seenImage == 0;  // the first acquire gives the screen as it is
  for (;;) {
    if (lost()) return Wait::Lost;
    bool pointer;
    {
      std::lock_guard<std::mutex> lock(desktop->mutex);
      pointer = takePointer(info);
    }
    int32_t px = 0, py = 0;
    if (!pointer && grabber->pointerMoved(px, py)) {
      pointer = true;
      info.LastMouseUpdateTime.QuadPart = performanceCounterNow();
      info.PointerPosition.Position = {px, py};
      info.PointerPosition.Visible = TRUE;
    }
    if (damaged) {
      int64_t now = performanceCounterNow();
      d3d11::PixelStore& store = image->store();
      bool grabbed;
      {
        std::lock_guard<std::mutex> pixels(store.mutex);
        grabbed = grabber->grab(store.bytes.data(), store.layout.rowPitch, width, height);
      }
      if (!grabbed) return Wait::Lost;
      std::lock_guard<std::mutex> lock(desktop->mutex);
      desktop->xPresentTime = now;
      info.LastPresentTime.QuadPart = now;
      info.AccumulatedFrames = 1;
      ++seenImage;
    }
    if (pointer || damaged) return Wait::Frame;
    // Damage that has come already counts even when the time is up; rounded up so that a wait
    // of a fraction of a millisecond still looks once more.
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    damaged = grabber->waitForDamage(uint32_t(std::clamp<int64_t>(left, 0, kXSliceMs)));
    if (!damaged && left <= 0) return Wait::Timeout;
  }
}

HRESULT OutputDuplication::AcquireNextFrame(UINT TimeoutInMilliseconds, DXGI_OUTDUPL_FRAME_INFO* pFrameInfo,
                                            IDXGIResource** ppDesktopResource) {
  if (ppDesktopResource != nullptr) *ppDesktopResource = nullptr;
  if (HRESULT hr = enter("IDXGIOutputDuplication::AcquireNextFrame"); hr != S_OK) return hr;
  if (pFrameInfo == nullptr || ppDesktopResource == nullptr) return E_INVALIDARG;
  std::lock_guard<std::mutex> call(callMutex);
  if (lost()) return DXGI_ERROR_ACCESS_LOST;
  if (held) return DXGI_ERROR_INVALID_CALL;
  DXGI_OUTDUPL_FRAME_INFO info{};
  Wait result = grabber != nullptr ? waitX(TimeoutInMilliseconds, info) : waitSynthetic(TimeoutInMilliseconds, info);
  if (result == Wait::Lost) return DXGI_ERROR_ACCESS_LOST;
  if (result == Wait::Timeout) return DXGI_ERROR_WAIT_TIMEOUT;
  *pFrameInfo = info;
  held = true;
  return image->answerAs(IID_IDXGIResource, reinterpret_cast<void**>(ppDesktopResource));
}

HRESULT OutputDuplication::ReleaseFrame() {
  if (HRESULT hr = enter("IDXGIOutputDuplication::ReleaseFrame"); hr != S_OK) return hr;
  std::lock_guard<std::mutex> call(callMutex);
  if (!held) return DXGI_ERROR_INVALID_CALL;
  held = false;
  return lost() ? DXGI_ERROR_ACCESS_LOST : S_OK;
}

}  // namespace platform::desktop
