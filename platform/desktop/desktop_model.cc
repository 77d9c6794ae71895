#include "platform/desktop/desktop_model.h"

#include <algorithm>
#include <vector>

#include "platform/core/clock.h"
#include "platform/desktop/synthetic_image.h"
#include "platform/dxgi/machine.h"

namespace platform::desktop {

OutputDesktop::OutputDesktop(uint32_t width, uint32_t height, uint32_t refreshRate, std::string display)
    : refreshRate(std::max<uint32_t>(refreshRate, 1)),
      display(std::move(display)),
      width(width),
      height(height),
      animationStart(performanceCounterNow()) {}

uint64_t OutputDesktop::imageAt(int64_t qpc) const {
  if (!animating) return stillImage;
  int64_t elapsed = std::max<int64_t>(qpc - animationStart, 0);
  // 128-bit so that long uptimes at high rates can't overflow.
  return animationBase + 1 + uint64_t((__int128(elapsed) * refreshRate) / performanceFrequency());
}

int64_t OutputDesktop::presentTimeOf(uint64_t image) const {
  if (!animating) return stillTime;
  uint64_t step = image > animationBase ? image - animationBase - 1 : 0;
  __int128 ticks = (__int128(step) * performanceFrequency() + refreshRate - 1) / refreshRate;
  return animationStart + int64_t(ticks);
}

int64_t OutputDesktop::nextImageAt(int64_t qpc) const {
  if (!animating) return INT64_MAX;
  return presentTimeOf(imageAt(qpc) + 1);
}

uint64_t OutputDesktop::draw(uint64_t image, uint8_t* bytes, uint32_t rowPitch, uint64_t drawnFrame) const {
  if (solid) {
    fillSolid(bytes, rowPitch, width, height, colour);
    return 0;
  }
  if (drawnFrame != 0)
    drawSyntheticChange(bytes, rowPitch, width, height, drawnFrame, image);
  else
    drawSyntheticFrame(bytes, rowPitch, width, height, image);
  return image;
}

void OutputDesktop::fill(uint32_t newColour, int64_t now) {
  uint64_t next = imageAt(now) + 1;
  animating = false;
  solid = true;
  colour = newColour;
  stillImage = next;
  stillTime = now;
  changed.notify_all();
}

void OutputDesktop::freeze(int64_t now) {
  if (!animating) return;
  stillImage = imageAt(now);
  stillTime = presentTimeOf(stillImage);
  animating = false;
}

void OutputDesktop::animate(int64_t now) {
  animationBase = imageAt(now);
  animationStart = now;
  animating = true;
  solid = false;
  changed.notify_all();
}

void OutputDesktop::repaint(int64_t now) {
  if (animating) {
    animationBase = imageAt(now);
    animationStart = now;
  } else {
    stillImage += 1;
    stillTime = now;
  }
  changed.notify_all();
}

namespace {

struct Registry {
  std::mutex mutex;
  uint32_t generation = 0;
  std::vector<std::shared_ptr<OutputDesktop>> outputs;
};

Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

void retireLocked(Registry& r) {
  for (const auto& output : r.outputs) {
    std::lock_guard<std::mutex> lock(output->mutex);
    output->retired = true;
    output->changed.notify_all();
  }
  r.outputs.clear();
}

}  // namespace

std::shared_ptr<OutputDesktop> outputDesktop(uint32_t number) {
  dxgi::MachineSnapshot snapshot = dxgi::machineSnapshot();
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  if (r.generation != snapshot.generation) {
    retireLocked(r);
    r.generation = snapshot.generation;
    for (const auto& adapter : snapshot.machine.adapters)
      for (const auto& output : adapter.outputs)
        r.outputs.push_back(std::make_shared<OutputDesktop>(uint32_t(std::max(output.width, 0)),
                                                            uint32_t(std::max(output.height, 0)),
                                                            snapshot.machine.refreshRate, snapshot.machine.display));
  }
  return number < r.outputs.size() ? r.outputs[number] : nullptr;
}

bool changedMode(uint32_t number, uint32_t& width, uint32_t& height) {
  std::shared_ptr<OutputDesktop> output = outputDesktop(number);
  if (output == nullptr) return false;
  std::lock_guard<std::mutex> lock(output->mutex);
  if (!output->modeSet) return false;
  width = output->width;
  height = output->height;
  return true;
}

void retireAll() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  retireLocked(r);
  r.generation = 0;
}

}  // namespace platform::desktop
