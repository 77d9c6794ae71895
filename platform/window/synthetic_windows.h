// The synthetic windows that the control interface opens: pixels in memory, and a generation
// that every change advances.
#pragma once

#include <memory>

#include "platform/window/capture_target.h"

namespace platform::window {

bool isSyntheticHandle(HWND window);
bool syntheticExists(HWND window);
bool syntheticSize(HWND window, WindowSize* size);
std::unique_ptr<CaptureTarget> openSyntheticTarget(HWND window);

}  // namespace platform::window
