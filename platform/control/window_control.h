// Synthetic windows: what tests and tools open, draw, resize and close for window capture. A
// handle is an opaque non-zero value that no X11 window id takes, so synthetic windows stand
// beside the real windows of an X display. Pixels are B8G8R8A8, packed as 0xAARRGGBB.
#pragma once

#include <cstdint>

namespace platform::control {

// A new window of `width` x `height` (each at least 1), filled with `colour`; 0 for a bad size.
uint64_t openWindow(int32_t width, int32_t height, uint32_t colour);
// Each answers false for a handle that names no open synthetic window, or a bad size.
bool fillWindow(uint64_t window, uint32_t colour);
// Paints the rectangle, clipped to the window.
bool drawWindowRect(uint64_t window, int32_t left, int32_t top, int32_t width, int32_t height, uint32_t colour);
// The content keeps its place at the top left; new area takes the last fill colour.
bool resizeWindow(uint64_t window, int32_t width, int32_t height);
bool closeWindow(uint64_t window);
void closeAllWindows();
// Window captures that started with cursor capture enabled (the default), so that the pointer is
// drawn into their frames; counted over the life of the process.
uint64_t capturesStartedWithCursor();
int openWindowCount();

}  // namespace platform::control
