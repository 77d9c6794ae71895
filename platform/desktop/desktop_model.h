// The desktop behind each output: its mode, what it shows and when that last changed, where the
// pointer is, and whether a duplication holds it. Control calls change it; duplications wait on it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace platform::desktop {

class OutputDesktop {
 public:
  OutputDesktop(uint32_t width, uint32_t height, uint32_t refreshRate, std::string display);

  // All below is guarded by `mutex`; waiters on `changed` hear of every change.
  std::mutex mutex;
  std::condition_variable changed;

  const uint32_t refreshRate;
  const std::string display;  // the X display whose screen this is; empty: synthetic
  uint32_t width, height;
  bool modeSet = false;       // a mode was set; an X screen otherwise gives its own size
  uint64_t lossEpoch = 0;     // a mode change or desktop switch loses the duplications of before
  bool retired = false;       // the machine description changed: this desktop is gone
  bool duplicated = false;    // a live duplication holds the output

  // Images are numbered from 1. The animated desktop makes a new one `refreshRate` times a second.
  uint64_t imageAt(int64_t qpc) const;
  // The performance-counter time at which `image` appeared.
  int64_t presentTimeOf(uint64_t image) const;
  // When the image after the one of `qpc` appears; INT64_MAX while the desktop is still.
  int64_t nextImageAt(int64_t qpc) const;
  // Draws `image` into a BGRA buffer of the desktop's size that holds animation frame
  // `drawnFrame` already (0: anything else). Answers the animation frame the buffer now holds.
  uint64_t draw(uint64_t image, uint8_t* bytes, uint32_t rowPitch, uint64_t drawnFrame) const;

  void fill(uint32_t colour, int64_t now);
  void freeze(int64_t now);
  void animate(int64_t now);
  // A new image now, whatever the content (a mode change repaints everything).
  void repaint(int64_t now);

  // The latest image an X duplication saw, by the time it saw the damage.
  int64_t xPresentTime = 0;

  uint64_t pointerUpdates = 0;
  int64_t pointerTime = 0;
  int32_t pointerX = 0, pointerY = 0;

 private:
  bool animating = true;
  bool solid = false;
  uint32_t colour = 0;
  uint64_t animationBase = 0;   // the image before the animation's first
  int64_t animationStart = 0;   // when that first image appeared
  uint64_t stillImage = 0;
  int64_t stillTime = 0;
};

// The desktop of output `number` (counted across adapters) of the current machine; null if the
// machine has no such output.
std::shared_ptr<OutputDesktop> outputDesktop(uint32_t number);
// The size that a control call gave output `number`, if any: the output reports it as its mode.
bool changedMode(uint32_t number, uint32_t& width, uint32_t& height);
// The machine description changed: every desktop goes, and its duplications are lost.
void retireAll();

}  // namespace platform::desktop
