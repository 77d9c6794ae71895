#include "platform/window/x11_windows.h"

namespace platform::window {

bool x11Exists(const std::string&, HWND) { return false; }
bool x11Size(const std::string&, HWND, WindowSize*) { return false; }
std::unique_ptr<CaptureTarget> openX11Target(const std::string&, HWND) { return nullptr; }

}  // namespace platform::window
