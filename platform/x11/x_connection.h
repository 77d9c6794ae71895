// X connections that can't end the process: protocol errors (a window that vanished) are
// caught by the calling thread's innermost ErrorTrap, and a lost connection marks the display
// lost instead of exiting. The handlers are the process's own, installed once, so every X11
// user of the platform opens its displays here.
#pragma once

#include <X11/Xlib.h>

#include <string>

namespace platform::x11 {

// XOpenDisplay with the error handlers in place; null when the display can't be reached.
Display* openDisplay(const std::string& name);
// XCloseDisplay, also for a lost connection.
void closeDisplay(Display* display);
// True once the connection broke; every later call on it answers at once, with nothing.
bool connectionLost(Display* display);

// Catches the protocol errors of X calls made on this thread while it lives.
class ErrorTrap {
 public:
  explicit ErrorTrap(Display* display);
  ~ErrorTrap();
  ErrorTrap(const ErrorTrap&) = delete;
  ErrorTrap& operator=(const ErrorTrap&) = delete;

  // Waits for the server to answer every request made so far and gives the first error code
  // caught (0: none). A lost connection counts as an error.
  int sync();

 private:
  Display* display;
  ErrorTrap* outer;
  int firstError = 0;
  friend int onProtocolError(Display*, XErrorEvent*);
};

}  // namespace platform::x11
