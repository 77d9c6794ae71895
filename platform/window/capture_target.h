// The machine's windows as window capture sees them: a handle is either a synthetic window of the
// control interface or, with an X display, an X11 window id. A capture target is one window's
// pixels and changes, owned by one capture at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "windef.h"

namespace platform::window {

struct WindowSize {
  int32_t width = 0;
  int32_t height = 0;
};

enum class WindowChange { Unchanged, Changed, Gone };

class CaptureTarget {
 public:
  virtual ~CaptureTarget() = default;
  // Waits at most `milliseconds` for the window to change; Gone once it is destroyed or
  // unmapped, and from then on.
  virtual WindowChange waitForChange(uint32_t milliseconds) = 0;
  // Copies the window's pixels into a BGRA image of `width` x `height` at `pitch` bytes a row:
  // the part that fits, from the top left; what the window doesn't cover is transparent black.
  // False when the window has gone.
  virtual bool grab(uint8_t* pixels, uint32_t pitch, uint32_t width, uint32_t height) = 0;
};

// Whether `window` names a window that exists now.
bool exists(HWND window);
// The window's client size now; false when it doesn't exist.
bool sizeOf(HWND window, WindowSize* size);
// Null when `window` doesn't exist or can't be captured.
std::unique_ptr<CaptureTarget> openTarget(HWND window);

}  // namespace platform::window
