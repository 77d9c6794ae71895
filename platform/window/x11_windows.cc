#include "platform/window/x11_windows.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xdamage.h>
#include <poll.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/x11/x_connection.h"

namespace platform::window {
namespace {

Window windowId(HWND window) { return Window(reinterpret_cast<uintptr_t>(window)); }

// IsWindow and sizes go through one connection, opened on first use and again after the
// display changes or the connection breaks.
class QueryConnection {
 public:
  bool attributes(const std::string& name, Window window, XWindowAttributes* attributes) {
    std::lock_guard<std::mutex> lock(mutex);
    // A server that ended since the last query shows only now: one new connection, one retry.
    for (int attempt = 0; attempt < 2; ++attempt) {
      if (display != nullptr && (name != displayName || x11::connectionLost(display))) {
        x11::closeDisplay(display);
        display = nullptr;
      }
      if (display == nullptr) {
        display = x11::openDisplay(name);
        displayName = name;
        if (display == nullptr) return false;
      }
      x11::ErrorTrap trap(display);
      Status status = XGetWindowAttributes(display, window, attributes);
      int error = trap.sync();
      if (!x11::connectionLost(display)) return error == 0 && status != 0;
    }
    return false;
  }

 private:
  std::mutex mutex;
  Display* display = nullptr;
  std::string displayName;
};

QueryConnection& queries() {
  static QueryConnection* instance = new QueryConnection;
  return *instance;
}

// One window redirected off-screen by XComposite, so that its own pixels stay readable under
// other windows, and watched by XDamage for changes and by StructureNotify for its end.
class X11Target final : public CaptureTarget {
 public:
  X11Target(Display* display, Window window, int damageEventBase)
      : display(display), window(window), damageEventBase(damageEventBase) {}

  ~X11Target() override {
    if (!x11::connectionLost(display)) {
      x11::ErrorTrap trap(display);
      if (damage != 0) XDamageDestroy(display, damage);
      XCompositeUnredirectWindow(display, window, CompositeRedirectAutomatic);
      trap.sync();
    }
    x11::closeDisplay(display);
  }

  bool start() {
    x11::ErrorTrap trap(display);
    XSelectInput(display, window, StructureNotifyMask);
    XCompositeRedirectWindow(display, window, CompositeRedirectAutomatic);
    if (trap.sync() != 0) {
      // A compositor may hold the window already; its own pixels are readable all the same.
      x11::ErrorTrap retry(display);
      XSelectInput(display, window, StructureNotifyMask);
      if (retry.sync() != 0) return false;
    }
    x11::ErrorTrap damageTrap(display);
    damage = XDamageCreate(display, window, XDamageReportNonEmpty);
    XWindowAttributes attributes;
    Status status = XGetWindowAttributes(display, window, &attributes);
    if (damageTrap.sync() != 0 || status == 0) return false;
    mapped = attributes.map_state == IsViewable;
    return true;
  }

  WindowChange waitForChange(uint32_t milliseconds) override {
    bool changed = drainEvents();
    if (!changed && !gone && milliseconds > 0) {
      pollfd descriptor = {ConnectionNumber(display), POLLIN, 0};
      if (poll(&descriptor, 1, int(milliseconds)) > 0) changed = drainEvents();
    }
    if (gone) return WindowChange::Gone;
    return changed && mapped ? WindowChange::Changed : WindowChange::Unchanged;
  }

  bool grab(uint8_t* pixels, uint32_t pitch, uint32_t width, uint32_t height) override {
    if (gone || x11::connectionLost(display)) return false;
    x11::ErrorTrap trap(display);
    XWindowAttributes attributes;
    if (XGetWindowAttributes(display, window, &attributes) == 0 || trap.sync() != 0) {
      gone = true;
      return false;
    }
    uint32_t copyWidth = std::min(width, uint32_t(std::max(attributes.width, 0)));
    uint32_t copyHeight = std::min(height, uint32_t(std::max(attributes.height, 0)));
    XImage* image = nullptr;
    if (copyWidth > 0 && copyHeight > 0)
      image = XGetImage(display, window, 0, 0, copyWidth, copyHeight, AllPlanes, ZPixmap);
    // An unmapped window has no image to give; it isn't gone, it gives no frame.
    if (trap.sync() != 0 && image == nullptr) {
      gone = x11::connectionLost(display) || !exists();
      return false;
    }
    for (uint32_t y = 0; y < height; ++y) std::memset(pixels + size_t(y) * pitch, 0, size_t(width) * 4);
    if (image != nullptr) {
      copyImage(*image, pixels, pitch, copyWidth, copyHeight);
      XDestroyImage(image);
    }
    return true;
  }

 private:
  bool exists() {
    x11::ErrorTrap trap(display);
    XWindowAttributes attributes;
    Status status = XGetWindowAttributes(display, window, &attributes);
    return trap.sync() == 0 && status != 0;
  }

  // True when the window's content or size changed.
  bool drainEvents() {
    bool changed = false;
    if (x11::connectionLost(display)) {
      gone = true;
      return false;
    }
    x11::ErrorTrap trap(display);
    while (!x11::connectionLost(display) && XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type == damageEventBase + XDamageNotify) {
        XDamageSubtract(display, damage, None, None);
        changed = true;
      } else if (event.type == DestroyNotify && event.xdestroywindow.window == window) {
        gone = true;
      } else if (event.type == UnmapNotify && event.xunmap.window == window) {
        mapped = false;
      } else if (event.type == MapNotify && event.xmap.window == window) {
        mapped = true;
        changed = true;
      } else if (event.type == ConfigureNotify && event.xconfigure.window == window) {
        changed = true;
      }
    }
    if (x11::connectionLost(display)) gone = true;
    return changed;
  }

  // B8G8R8A8 from the server's image; alpha is 255, as a window on screen is opaque.
  static void copyImage(XImage& image, uint8_t* pixels, uint32_t pitch, uint32_t width, uint32_t height) {
    bool direct = image.bits_per_pixel == 32 && image.red_mask == 0xFF0000 && image.green_mask == 0xFF00 &&
                  image.blue_mask == 0xFF && image.byte_order == LSBFirst;
    for (uint32_t y = 0; y < height; ++y) {
      auto* row = reinterpret_cast<uint32_t*>(pixels + size_t(y) * pitch);
      if (direct) {
        const auto* from = reinterpret_cast<const uint32_t*>(image.data + size_t(y) * image.bytes_per_line);
        for (uint32_t x = 0; x < width; ++x) row[x] = from[x] | 0xFF000000u;
      } else {
        for (uint32_t x = 0; x < width; ++x) row[x] = pixelOf(image, x, y);
      }
    }
  }

  static uint32_t channel(unsigned long pixel, unsigned long mask) {
    if (mask == 0) return 0;
    int shift = __builtin_ctzl(mask);
    unsigned long value = (pixel & mask) >> shift, maximum = mask >> shift;
    return uint32_t(value * 255 / maximum);
  }

  static uint32_t pixelOf(XImage& image, uint32_t x, uint32_t y) {
    unsigned long pixel = XGetPixel(&image, int(x), int(y));
    return 0xFF000000u | (channel(pixel, image.red_mask) << 16) | (channel(pixel, image.green_mask) << 8) |
           channel(pixel, image.blue_mask);
  }

  Display* const display;
  const Window window;
  const int damageEventBase;
  Damage damage = 0;
  bool gone = false;
  bool mapped = true;
};

}  // namespace

bool x11Exists(const std::string& display, HWND window) {
  XWindowAttributes attributes;
  return queries().attributes(display, windowId(window), &attributes);
}

bool x11Size(const std::string& display, HWND window, WindowSize* size) {
  XWindowAttributes attributes;
  if (!queries().attributes(display, windowId(window), &attributes)) return false;
  *size = {attributes.width, attributes.height};
  return true;
}

std::unique_ptr<CaptureTarget> openX11Target(const std::string& name, HWND window) {
  Display* display = x11::openDisplay(name);
  if (display == nullptr) return nullptr;
  int compositeEvent = 0, compositeError = 0, damageEvent = 0, damageError = 0;
  if (!XCompositeQueryExtension(display, &compositeEvent, &compositeError) ||
      !XDamageQueryExtension(display, &damageEvent, &damageError)) {
    x11::closeDisplay(display);
    return nullptr;
  }
  auto target = std::make_unique<X11Target>(display, windowId(window), damageEvent);
  if (!target->start()) return nullptr;
  return target;
}

}  // namespace platform::window
