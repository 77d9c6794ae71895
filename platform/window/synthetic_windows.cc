#include "platform/window/synthetic_windows.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "platform/control/window_control.h"

namespace platform::window {
namespace {

// X11 window ids have 29 bits; synthetic handles start far above them and below 2^53, so that
// JavaScript numbers hold them exactly.
constexpr uint64_t kFirstHandle = 1ull << 36;

struct SyntheticWindow {
  std::mutex mutex;
  std::condition_variable changed;
  int32_t width = 0;
  int32_t height = 0;
  uint32_t background = 0;
  std::vector<uint32_t> pixels;
  uint64_t generation = 0;
  bool closed = false;

  void advance() {
    ++generation;
    changed.notify_all();
  }
};

struct WindowTable {
  std::mutex mutex;
  std::map<uint64_t, std::shared_ptr<SyntheticWindow>> windows;
  uint64_t nextHandle = kFirstHandle;
};

// Never destroyed: a capture thread may still look at it while the process exits.
WindowTable& table() {
  static WindowTable* instance = new WindowTable;
  return *instance;
}

std::shared_ptr<SyntheticWindow> find(uint64_t handle) {
  WindowTable& t = table();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto found = t.windows.find(handle);
  return found == t.windows.end() ? nullptr : found->second;
}

uint64_t handleValue(HWND window) { return uint64_t(reinterpret_cast<uintptr_t>(window)); }

bool validSize(int32_t width, int32_t height) {
  // A bound keeps a typo from asking for gigabytes.
  constexpr int32_t kMaxSide = 16384;
  return width >= 1 && height >= 1 && width <= kMaxSide && height <= kMaxSide;
}

class SyntheticTarget final : public CaptureTarget {
 public:
  explicit SyntheticTarget(std::shared_ptr<SyntheticWindow> window) : window(std::move(window)) {
    std::lock_guard<std::mutex> lock(this->window->mutex);
    seen = this->window->generation;
  }

  WindowChange waitForChange(uint32_t milliseconds) override {
    std::unique_lock<std::mutex> lock(window->mutex);
    window->changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [&] { return window->closed || window->generation != seen; });
    if (window->closed) return WindowChange::Gone;
    if (window->generation == seen) return WindowChange::Unchanged;
    seen = window->generation;
    return WindowChange::Changed;
  }

  bool grab(uint8_t* pixels, uint32_t pitch, uint32_t width, uint32_t height) override {
    std::lock_guard<std::mutex> lock(window->mutex);
    if (window->closed) return false;
    uint32_t copyWidth = std::min(width, uint32_t(window->width));
    uint32_t copyHeight = std::min(height, uint32_t(window->height));
    for (uint32_t y = 0; y < height; ++y) {
      uint8_t* row = pixels + size_t(y) * pitch;
      std::memset(row, 0, size_t(width) * 4);
      if (y < copyHeight) std::memcpy(row, &window->pixels[size_t(y) * window->width], size_t(copyWidth) * 4);
    }
    return true;
  }

 private:
  std::shared_ptr<SyntheticWindow> window;
  uint64_t seen = 0;
};

}  // namespace

bool isSyntheticHandle(HWND window) { return handleValue(window) >= kFirstHandle; }

bool syntheticExists(HWND window) { return find(handleValue(window)) != nullptr; }

bool syntheticSize(HWND window, WindowSize* size) {
  std::shared_ptr<SyntheticWindow> found = find(handleValue(window));
  if (found == nullptr) return false;
  std::lock_guard<std::mutex> lock(found->mutex);
  *size = {found->width, found->height};
  return true;
}

std::unique_ptr<CaptureTarget> openSyntheticTarget(HWND window) {
  std::shared_ptr<SyntheticWindow> found = find(handleValue(window));
  if (found == nullptr) return nullptr;
  return std::make_unique<SyntheticTarget>(std::move(found));
}

}  // namespace platform::window

namespace platform::control {

using window::SyntheticWindow;

uint64_t openWindow(int32_t width, int32_t height, uint32_t colour) {
  if (!window::validSize(width, height)) return 0;
  auto opened = std::make_shared<SyntheticWindow>();
  opened->width = width;
  opened->height = height;
  opened->background = colour;
  opened->pixels.assign(size_t(width) * height, colour);
  window::WindowTable& t = window::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  uint64_t handle = t.nextHandle++;
  t.windows.emplace(handle, std::move(opened));
  return handle;
}

bool fillWindow(uint64_t handle, uint32_t colour) {
  std::shared_ptr<SyntheticWindow> found = window::find(handle);
  if (found == nullptr) return false;
  std::lock_guard<std::mutex> lock(found->mutex);
  found->background = colour;
  std::fill(found->pixels.begin(), found->pixels.end(), colour);
  found->advance();
  return true;
}

bool drawWindowRect(uint64_t handle, int32_t left, int32_t top, int32_t width, int32_t height, uint32_t colour) {
  std::shared_ptr<SyntheticWindow> found = window::find(handle);
  if (found == nullptr || width < 0 || height < 0) return false;
  std::lock_guard<std::mutex> lock(found->mutex);
  int64_t x0 = std::max<int64_t>(left, 0), y0 = std::max<int64_t>(top, 0);
  int64_t x1 = std::min<int64_t>(int64_t(left) + width, found->width);
  int64_t y1 = std::min<int64_t>(int64_t(top) + height, found->height);
  for (int64_t y = y0; y < y1; ++y)
    std::fill_n(&found->pixels[size_t(y) * found->width + size_t(x0)], size_t(std::max<int64_t>(x1 - x0, 0)), colour);
  found->advance();
  return true;
}

bool resizeWindow(uint64_t handle, int32_t width, int32_t height) {
  std::shared_ptr<SyntheticWindow> found = window::find(handle);
  if (found == nullptr || !window::validSize(width, height)) return false;
  std::lock_guard<std::mutex> lock(found->mutex);
  std::vector<uint32_t> resized(size_t(width) * height, found->background);
  int32_t keepWidth = std::min(width, found->width), keepHeight = std::min(height, found->height);
  for (int32_t y = 0; y < keepHeight; ++y)
    std::copy_n(&found->pixels[size_t(y) * found->width], keepWidth, &resized[size_t(y) * width]);
  found->pixels = std::move(resized);
  found->width = width;
  found->height = height;
  found->advance();
  return true;
}

bool closeWindow(uint64_t handle) {
  std::shared_ptr<SyntheticWindow> closed;
  {
    window::WindowTable& t = window::table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto found = t.windows.find(handle);
    if (found == t.windows.end()) return false;
    closed = std::move(found->second);
    t.windows.erase(found);
  }
  std::lock_guard<std::mutex> lock(closed->mutex);
  closed->closed = true;
  closed->pixels.clear();
  closed->changed.notify_all();
  return true;
}

void closeAllWindows() {
  std::vector<uint64_t> handles;
  {
    window::WindowTable& t = window::table();
    std::lock_guard<std::mutex> lock(t.mutex);
    for (const auto& entry : t.windows) handles.push_back(entry.first);
  }
  for (uint64_t handle : handles) closeWindow(handle);
}

int openWindowCount() {
  window::WindowTable& t = window::table();
  std::lock_guard<std::mutex> lock(t.mutex);
  return int(t.windows.size());
}

}  // namespace platform::control
