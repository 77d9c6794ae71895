// The control interface's side of the desktop.
#include "platform/control/desktop_control.h"

#include "platform/core/clock.h"
#include "platform/desktop/desktop_model.h"
#include "platform/dxgi/machine.h"

namespace platform::control {
namespace {

template <class Change>
bool change(uint32_t outputNumber, Change body) {
  std::shared_ptr<desktop::OutputDesktop> output = desktop::outputDesktop(outputNumber);
  if (output == nullptr) return false;
  std::lock_guard<std::mutex> lock(output->mutex);
  body(*output, performanceCounterNow());
  output->changed.notify_all();
  return true;
}

}  // namespace

bool fillOutput(uint32_t outputNumber, uint32_t colour) {
  return change(outputNumber, [&](desktop::OutputDesktop& d, int64_t now) { d.fill(colour, now); });
}

bool freezeOutput(uint32_t outputNumber) {
  return change(outputNumber, [](desktop::OutputDesktop& d, int64_t now) { d.freeze(now); });
}

bool animateOutput(uint32_t outputNumber) {
  return change(outputNumber, [](desktop::OutputDesktop& d, int64_t now) { d.animate(now); });
}

bool movePointer(uint32_t outputNumber, int32_t x, int32_t y) {
  return change(outputNumber, [&](desktop::OutputDesktop& d, int64_t now) {
    d.pointerX = x;
    d.pointerY = y;
    d.pointerTime = now;
    ++d.pointerUpdates;
  });
}

bool setOutputMode(uint32_t outputNumber, uint32_t width, uint32_t height) {
  // A mode needs pixels; bounded so that a typo can't ask for gigabytes per frame.
  if (width == 0 || height == 0 || width > 16384 || height > 16384) return false;
  return change(outputNumber, [&](desktop::OutputDesktop& d, int64_t now) {
    d.width = width;
    d.height = height;
    d.modeSet = true;
    ++d.lossEpoch;
    d.repaint(now);
  });
}

void switchDesktop() {
  dxgi::MachineSnapshot snapshot = dxgi::machineSnapshot();
  uint32_t outputs = 0;
  for (const auto& adapter : snapshot.machine.adapters) outputs += uint32_t(adapter.outputs.size());
  for (uint32_t number = 0; number < outputs; ++number)
    change(number, [](desktop::OutputDesktop& d, int64_t) { ++d.lossEpoch; });
}

int64_t latestPresentTime(uint32_t outputNumber) {
  std::shared_ptr<desktop::OutputDesktop> output = desktop::outputDesktop(outputNumber);
  if (output == nullptr) return 0;
  std::lock_guard<std::mutex> lock(output->mutex);
  if (!output->display.empty()) return output->xPresentTime;
  return output->presentTimeOf(output->imageAt(performanceCounterNow()));
}

}  // namespace platform::control
