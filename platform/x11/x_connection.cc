#include "platform/x11/x_connection.h"

#include <mutex>
#include <set>

namespace platform::x11 {

int onProtocolError(Display*, XErrorEvent* event);

namespace {

thread_local ErrorTrap* innermostTrap = nullptr;

struct LostDisplays {
  std::mutex mutex;
  std::set<Display*> lost;
};

LostDisplays& lostDisplays() {
  static LostDisplays* instance = new LostDisplays;
  return *instance;
}

// Xlib calls this, then the exit handler; returning from both leaves the display dead but the
// process running.
int onIoError(Display*) { return 0; }

void onIoErrorExit(Display* display, void*) {
  LostDisplays& l = lostDisplays();
  std::lock_guard<std::mutex> lock(l.mutex);
  l.lost.insert(display);
}

void installHandlers() {
  static std::once_flag once;
  std::call_once(once, [] {
    XInitThreads();
    XSetErrorHandler(onProtocolError);
    XSetIOErrorHandler(onIoError);
  });
}

}  // namespace

// An error outside any trap is dropped: Xlib's default handler would end the process.
int onProtocolError(Display*, XErrorEvent* event) {
  if (innermostTrap != nullptr && innermostTrap->firstError == 0) innermostTrap->firstError = event->error_code;
  return 0;
}

Display* openDisplay(const std::string& name) {
  installHandlers();
  Display* display = XOpenDisplay(name.c_str());
  if (display != nullptr) XSetIOErrorExitHandler(display, onIoErrorExit, nullptr);
  return display;
}

void closeDisplay(Display* display) {
  if (display == nullptr) return;
  XCloseDisplay(display);
  LostDisplays& l = lostDisplays();
  std::lock_guard<std::mutex> lock(l.mutex);
  l.lost.erase(display);
}

bool connectionLost(Display* display) {
  LostDisplays& l = lostDisplays();
  std::lock_guard<std::mutex> lock(l.mutex);
  return l.lost.count(display) != 0;
}

ErrorTrap::ErrorTrap(Display* display) : display(display), outer(innermostTrap) { innermostTrap = this; }

ErrorTrap::~ErrorTrap() { innermostTrap = outer; }

int ErrorTrap::sync() {
  if (!connectionLost(display)) XSync(display, False);
  if (connectionLost(display) && firstError == 0) firstError = -1;
  return firstError;
}

}  // namespace platform::x11
