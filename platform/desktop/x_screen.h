// One duplication's connection to an X display: the root window's pixels through XShm and its
// changes through XDamage. An X error or a lost connection marks the grabber dead; it never ends
// the process.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace platform::desktop {

// The size of the display's default screen; false when it can't be opened.
bool xScreenSize(const std::string& display, uint32_t& width, uint32_t& height);

class XScreenGrabber {
 public:
  // Null when the display can't be opened or its screen isn't 32-bit true colour.
  static std::unique_ptr<XScreenGrabber> open(const std::string& display);
  ~XScreenGrabber();
  XScreenGrabber(const XScreenGrabber&) = delete;
  XScreenGrabber& operator=(const XScreenGrabber&) = delete;

  uint32_t screenWidth() const { return width; }
  uint32_t screenHeight() const { return height; }
  bool dead() const { return lost->load(); }

  // Whether the screen changed since the last grab, waiting up to `milliseconds` for it.
  bool waitForDamage(uint32_t milliseconds);
  // Whether the pointer moved since the last look, and where it is now.
  bool pointerMoved(int32_t& x, int32_t& y);
  // Copies the screen's top left into a BGRA buffer of `w` x `h` (alpha 255); what lies outside
  // the screen is black. A buffer that holds this grabber's last grab, untouched since, gets only
  // what changed; any other gets the whole screen. False when the connection failed.
  bool grab(uint8_t* bytes, uint32_t rowPitch, uint32_t w, uint32_t h);

 private:
  struct Connection;
  XScreenGrabber() = default;
  // Copies the screen's area at (left, top) of `w` x `h` to the same place of the buffer.
  bool fetch(int left, int top, int w, int h, uint8_t* bytes, uint32_t rowPitch);

  std::unique_ptr<Connection> x;
  // Shared with the IO-error exit handler, which may run inside any Xlib call of this connection.
  std::shared_ptr<std::atomic<bool>> lost = std::make_shared<std::atomic<bool>>(false);
  uint32_t width = 0, height = 0;
  int32_t pointerX = 0, pointerY = 0;
  bool damagePending = false;  // reported while the last grab fetched
  // The buffer the last grab filled; false until a grab succeeded.
  bool keptValid = false;
  const uint8_t* keptBytes = nullptr;
  uint32_t keptPitch = 0, keptWidth = 0, keptHeight = 0;
};

}  // namespace platform::desktop
