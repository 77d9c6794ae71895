// A private Xvfb for tests that need a real X display: started on a free display number, stopped
// with the object. Talks to Linux directly, so it stays out of the add-on's headers.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

struct _XDisplay;

namespace testing_support {

class XvfbServer {
 public:
  // Starts Xvfb with one screen of `width` x `height` at 24 bits; running() says whether it came up.
  XvfbServer(uint32_t width, uint32_t height);
  ~XvfbServer();
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;

  static bool installed();
  bool running() const { return pid > 0 && !display.empty(); }
  // ":N"
  const std::string& name() const { return display; }
  // Ends the server at once, as a crash would. Its display number stays unreachable, and taken,
  // for as long as this object lives.
  void kill();

 private:
  void reserveDisplayNumber();

  pid_t pid = -1;
  int reservation = -1;  // a socket bound to the killed server's name
  std::string display;
};

// A connection of the test's own that draws on the root window of a display.
class XPainter {
 public:
  explicit XPainter(const std::string& display);
  ~XPainter();
  XPainter(const XPainter&) = delete;
  XPainter& operator=(const XPainter&) = delete;

  bool open() const { return display != nullptr; }
  // Fills a rectangle of the root window with `colour` (0xRRGGBB in the low bits), and waits until
  // the server has done it.
  void fill(uint32_t colour, int x, int y, unsigned width, unsigned height);
  // Copies the root window's area of `width` x `height` at (x, y) to (toX, toY), as a terminal
  // scrolls, and waits until the server has done it.
  void copyArea(int x, int y, unsigned width, unsigned height, int toX, int toY);
  // Gives the root window a solid background of `colour` and clears it to that, as a desktop
  // setter does, and waits until the server has done it.
  void setBackground(uint32_t colour);
  // Moves the pointer to (x, y) of the screen.
  void warpPointer(int x, int y);
  // Sends a request the server refuses (BadWindow) and waits for the answer: without an error
  // handler of its own, Xlib would end the process here.
  void provokeError();

 private:
  ::_XDisplay* display;
};

}  // namespace testing_support
