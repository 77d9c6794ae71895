// An Xvfb server of a test's own, on a free display that the server picks (-displayfd).
#pragma once

#include <sys/types.h>

#include <string>

namespace testing_support {

class XvfbServer {
 public:
  XvfbServer() = default;
  ~XvfbServer() { stop(); }
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;

  static bool installed();
  // Starts the server and waits at most five seconds for it to take a display.
  bool start(int width = 640, int height = 480);
  // Ends the server; also what a test does to lose the connection on purpose.
  void stop();
  // ":N", empty until started.
  const std::string& name() const { return display; }

 private:
  pid_t pid = -1;
  std::string display;
};

}  // namespace testing_support
