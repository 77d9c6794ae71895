// Which windows the machine has: synthetic ones first, then, with an X display, its windows.
#include "platform/control/machine_control.h"
#include "platform/core/call_gate.h"
#include "platform/dxgi/machine.h"
#include "platform/window/capture_target.h"
#include "platform/window/synthetic_windows.h"
#include "platform/window/x11_windows.h"
#include "windows.h"

namespace platform::window {
namespace {

std::string machineDisplay() { return dxgi::machineSnapshot().machine.display; }

}  // namespace

bool exists(HWND window) {
  if (window == nullptr) return false;
  if (isSyntheticHandle(window)) return syntheticExists(window);
  std::string display = machineDisplay();
  return !display.empty() && x11Exists(display, window);
}

bool sizeOf(HWND window, WindowSize* size) {
  if (window == nullptr) return false;
  if (isSyntheticHandle(window)) return syntheticSize(window, size);
  std::string display = machineDisplay();
  return !display.empty() && x11Size(display, window, size);
}

std::unique_ptr<CaptureTarget> openTarget(HWND window) {
  if (window == nullptr) return nullptr;
  if (isSyntheticHandle(window)) return openSyntheticTarget(window);
  std::string display = machineDisplay();
  return display.empty() ? nullptr : openX11Target(display, window);
}

}  // namespace platform::window

BOOL WINAPI IsWindow(HWND hWnd) {
  int64_t value = 0;
  if (platform::plannedFault("IsWindow", &value)) return BOOL(value);
  return platform::window::exists(hWnd) ? TRUE : FALSE;
}
