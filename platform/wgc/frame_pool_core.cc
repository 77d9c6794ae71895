#include "platform/wgc/frame_pool_core.h"

#include <chrono>
#include <utility>

#include "platform/core/clock.h"

namespace platform::wgc {
namespace {

// How long the delivery thread waits for a change, a free buffer or a stop before it looks
// again; it bounds how late a stop is seen.
constexpr auto kPollInterval = std::chrono::milliseconds(10);

int64_t frameTime() {
  // 100 ns units of the performance counter, as SystemRelativeTime counts them.
  unsigned __int128 ticks = (unsigned __int128)uint64_t(performanceCounterNow()) * 10000000u;
  return int64_t(uint64_t(ticks / uint64_t(performanceFrequency())));
}

D3D11_TEXTURE2D_DESC bufferDesc(DXGI_FORMAT format, SizeInt32 size) {
  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = UINT(size.Width);
  desc.Height = UINT(size.Height);
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = format;
  desc.SampleDesc.Count = 1;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET;
  return desc;
}

}  // namespace

FramePoolCore::FramePoolCore(d3d11::Device* device, DXGI_FORMAT format, int buffers, SizeInt32 size, bool swapRedBlue)
    : bufferSize(size), swapRedBlue(swapRedBlue), slots(size_t(buffers)) {
  D3D11_TEXTURE2D_DESC desc = bufferDesc(format, size);
  for (Slot& slot : slots) {
    auto store = std::make_shared<d3d11::PixelStore>(desc, d3d11::layoutFor(format, desc.Width, desc.Height));
    slot.texture.reset(new d3d11::Texture(device, std::move(store)));
  }
}

FramePoolCore::~FramePoolCore() {
  for (auto& entry : handlers) entry.second->Release();
}

bool FramePoolCore::closed() {
  std::lock_guard<std::mutex> lock(mutex);
  return isClosed;
}

EventRegistrationToken FramePoolCore::addHandler(FrameArrivedHandler* handler) {
  handler->AddRef();
  std::lock_guard<std::mutex> lock(mutex);
  int64_t token = nextToken++;
  handlers.emplace(token, handler);
  return {token};
}

bool FramePoolCore::removeHandler(EventRegistrationToken token) {
  FrameArrivedHandler* removed = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = handlers.find(token.value);
    if (found == handlers.end()) return false;
    removed = found->second;
    handlers.erase(found);
  }
  removed->Release();
  return true;
}

bool FramePoolCore::takeReady(ReadyFrame* frame, Pin<d3d11::Texture>* texture) {
  std::lock_guard<std::mutex> lock(mutex);
  if (ready.empty()) return false;
  *frame = ready.front();
  ready.pop_front();
  texture->reset(slots[size_t(frame->slot)].texture.get());
  return true;
}

void FramePoolCore::returnBuffer(int slot) {
  std::lock_guard<std::mutex> lock(mutex);
  if (slot < 0 || size_t(slot) >= slots.size()) return;
  slots[size_t(slot)].free = true;
  changed.notify_all();
}

int FramePoolCore::freeSlot() const {
  for (size_t i = 0; i < slots.size(); ++i)
    if (slots[i].free && slots[i].texture) return int(i);
  return -1;
}

bool FramePoolCore::startCapture(std::unique_ptr<window::CaptureTarget> target,
                                 ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool* sender) {
  std::lock_guard<std::mutex> lock(mutex);
  if (isClosed || captureStarted) return false;
  captureStarted = true;
  delivering = true;
  // The thread holds the core, so that a pool released from inside a handler stays sound until
  // the handler returns.
  std::thread thread([self = shared_from_this(), owned = std::move(target), sender]() mutable {
    self->deliver(std::move(owned), sender);
  });
  deliveryThread = thread.get_id();
  thread.detach();
  return true;
}

void FramePoolCore::stopCapture() {
  std::unique_lock<std::mutex> lock(mutex);
  stopping = true;
  changed.notify_all();
  if (std::this_thread::get_id() == deliveryThread) return;  // a handler closing its own pool
  // Waits as long as a handler runs: Windows doesn't let Close return during an Invoke either,
  // and the handler is the application's code. The thread's own waits are bounded.
  changed.wait(lock, [&] { return !delivering; });
}

void FramePoolCore::close() {
  stopCapture();
  std::map<int64_t, FrameArrivedHandler*> dropped;
  std::vector<Slot> buffers;
  {
    std::lock_guard<std::mutex> lock(mutex);
    isClosed = true;
    ready.clear();
    dropped.swap(handlers);
    // Frames still out keep their surface's own pin on the texture.
    buffers.swap(slots);
  }
  for (auto& entry : dropped) entry.second->Release();
}

std::vector<FrameArrivedHandler*> FramePoolCore::subscribersWithReferences() {
  std::vector<FrameArrivedHandler*> subscribers;
  for (auto& entry : handlers) {
    entry.second->AddRef();
    subscribers.push_back(entry.second);
  }
  return subscribers;
}

bool FramePoolCore::grabInto(window::CaptureTarget& target, int slot) {
  d3d11::Texture* texture = slots[size_t(slot)].texture.get();
  d3d11::PixelStore& store = texture->store();
  std::lock_guard<std::mutex> lock(store.mutex);
  uint32_t width = store.layout.width, height = store.layout.height, pitch = store.layout.rowPitch;
  if (!target.grab(store.bytes.data(), pitch, width, height)) return false;
  if (swapRedBlue) {
    for (uint32_t y = 0; y < height; ++y) {
      uint8_t* pixel = store.bytes.data() + size_t(y) * pitch;
      for (uint32_t x = 0; x < width; ++x, pixel += 4) std::swap(pixel[0], pixel[2]);
    }
  }
  return true;
}

void FramePoolCore::deliver(std::unique_ptr<window::CaptureTarget> target,
                            ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool* sender) {
  bool pending = true;  // the first frame comes even for a window that never changes
  bool gone = false;
  for (;;) {
    int slot = -1;
    {
      std::unique_lock<std::mutex> lock(mutex);
      if (stopping) break;
      if (gone || !pending) {
        lock.unlock();
        if (gone) {
          // A destroyed window gives no more frames; the thread waits for its stop.
          lock.lock();
          changed.wait_for(lock, kPollInterval, [&] { return stopping; });
        } else if (target->waitForChange(uint32_t(kPollInterval.count())) == window::WindowChange::Changed) {
          pending = true;
        }
        continue;
      }
      slot = freeSlot();
      if (slot < 0) {
        // Every buffer is out: the change waits until a frame is released.
        changed.wait_for(lock, kPollInterval, [&] { return stopping || freeSlot() >= 0; });
        lock.unlock();
        if (target->waitForChange(0) == window::WindowChange::Gone) gone = true;
        continue;
      }
      slots[size_t(slot)].free = false;
    }
    // The buffer is this thread's until it is queued; changes seen from here on make a new frame.
    window::WindowChange latest = target->waitForChange(0);
    gone = latest == window::WindowChange::Gone;
    bool grabbed = !gone && grabInto(*target, slot);
    std::vector<FrameArrivedHandler*> subscribers;
    {
      std::unique_lock<std::mutex> lock(mutex);
      if (!grabbed || stopping) {
        slots[size_t(slot)].free = true;
        bool stopAsked = stopping;
        lock.unlock();
        // A window caught mid-resize or unmapped has no image now; one that has gone says so.
        if (!stopAsked && target->waitForChange(uint32_t(kPollInterval.count())) == window::WindowChange::Gone)
          gone = true;
        continue;
      }
      ready.push_back({slot, frameTime()});
      subscribers = subscribersWithReferences();
    }
    pending = false;
    for (FrameArrivedHandler* handler : subscribers) {
      handler->Invoke(sender, nullptr);
      handler->Release();
    }
  }
  target.reset();
  std::lock_guard<std::mutex> lock(mutex);
  delivering = false;
  changed.notify_all();
}

}  // namespace platform::wgc
