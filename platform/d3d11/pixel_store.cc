#include "platform/d3d11/pixel_store.h"

#include <chrono>

namespace platform::d3d11 {
namespace {

enum class Family { None, Bgra, Bgrx, Rgba, Nv12 };

Family familyOf(DXGI_FORMAT format) {
  switch (format) {
    case DXGI_FORMAT_B8G8R8A8_UNORM:
    case DXGI_FORMAT_B8G8R8A8_UNORM_SRGB:
    case DXGI_FORMAT_B8G8R8A8_TYPELESS:
      return Family::Bgra;
    case DXGI_FORMAT_B8G8R8X8_UNORM:
    case DXGI_FORMAT_B8G8R8X8_UNORM_SRGB:
    case DXGI_FORMAT_B8G8R8X8_TYPELESS:
      return Family::Bgrx;
    case DXGI_FORMAT_R8G8B8A8_UNORM:
    case DXGI_FORMAT_R8G8B8A8_UNORM_SRGB:
    case DXGI_FORMAT_R8G8B8A8_TYPELESS:
      return Family::Rgba;
    case DXGI_FORMAT_NV12:
      return Family::Nv12;
    default:
      return Family::None;
  }
}

bool isTypeless(DXGI_FORMAT format) {
  return format == DXGI_FORMAT_B8G8R8A8_TYPELESS || format == DXGI_FORMAT_B8G8R8X8_TYPELESS ||
         format == DXGI_FORMAT_R8G8B8A8_TYPELESS;
}

uint32_t aligned(uint32_t value) { return (value + kRowAlignment - 1) / kRowAlignment * kRowAlignment; }

}  // namespace

bool supportedFormat(DXGI_FORMAT format) { return familyOf(format) != Family::None; }

bool copyCompatible(DXGI_FORMAT a, DXGI_FORMAT b) {
  if (a == b) return true;
  // Members of one typeless group copy into each other only through the typeless format.
  return familyOf(a) == familyOf(b) && familyOf(a) != Family::Nv12 && (isTypeless(a) || isTypeless(b));
}

TextureLayout layoutFor(DXGI_FORMAT format, uint32_t width, uint32_t height) {
  TextureLayout layout;
  layout.width = width;
  layout.height = height;
  layout.nv12 = familyOf(format) == Family::Nv12;
  layout.bytesPerPixel = layout.nv12 ? 1 : 4;
  layout.rowPitch = aligned(width * layout.bytesPerPixel);
  size_t rows = layout.nv12 ? size_t(height) + height / 2 : height;
  layout.size = size_t(layout.rowPitch) * rows;
  return layout;
}

HRESULT KeyedMutex::acquire(const void* requester, UINT64 wanted, DWORD milliseconds) {
  std::unique_lock<std::mutex> lock(mutex);
  if (owner == requester) return E_FAIL;
  if (abandoned && owner == nullptr) {
    abandoned = false;
    owner = requester;
    return WAIT_ABANDONED;
  }
  auto ready = [&] { return owner == nullptr && (key == wanted || abandoned); };
  if (milliseconds == INFINITE) {
    released.wait(lock, ready);
  } else if (!released.wait_for(lock, std::chrono::milliseconds(milliseconds), ready)) {
    return WAIT_TIMEOUT;
  }
  owner = requester;
  if (abandoned) {
    abandoned = false;
    return WAIT_ABANDONED;
  }
  return S_OK;
}

HRESULT KeyedMutex::release(const void* releaser, UINT64 newKey) {
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (owner != releaser) return E_FAIL;
    owner = nullptr;
    key = newKey;
  }
  released.notify_all();
  return S_OK;
}

bool KeyedMutex::heldBy(const void* candidate) {
  std::lock_guard<std::mutex> lock(mutex);
  return owner == candidate;
}

void KeyedMutex::abandon(const void* leaving) {
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (owner != leaving) return;
    owner = nullptr;
    abandoned = true;
  }
  released.notify_all();
}

}  // namespace platform::d3d11
