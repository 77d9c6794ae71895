// The windows of the machine's X display: an HWND is an X11 window id. Every call is bounded and
// error-trapped: a window that vanished or a connection that broke answers false, never ends
// the process.
#pragma once

#include <memory>
#include <string>

#include "platform/window/capture_target.h"

namespace platform::window {

bool x11Exists(const std::string& display, HWND window);
bool x11Size(const std::string& display, HWND window, WindowSize* size);
// Redirects the window off-screen through XComposite and watches it with XDamage, on a
// connection of the target's own.
std::unique_ptr<CaptureTarget> openX11Target(const std::string& display, HWND window);

}  // namespace platform::window
