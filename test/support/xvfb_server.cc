#include "test/support/xvfb_server.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace testing_support {
namespace {

const char* kXvfb = "/usr/bin/Xvfb";

}  // namespace

bool XvfbServer::installed() { return access(kXvfb, X_OK) == 0; }

bool XvfbServer::start(int width, int height) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
  std::string fd = std::to_string(fds[1]);
  pid = fork();
  if (pid == 0) {
    close(fds[0]);
    execl(kXvfb, kXvfb, "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(), "-nolisten", "tcp", "-noreset",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  if (pid < 0) {
    close(fds[0]);
    return false;
  }
  // The server writes its display number and a newline once it accepts connections.
  std::string number;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd descriptor = {fds[0], POLLIN, 0};
    if (poll(&descriptor, 1, 100) <= 0) continue;
    char c = 0;
    if (read(fds[0], &c, 1) != 1) break;
    if (c == '\n') break;
    number.push_back(c);
  }
  close(fds[0]);
  if (number.empty()) {
    stop();
    return false;
  }
  display = ":" + number;
  return true;
}

void XvfbServer::stop() {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  for (int i = 0; i < 200; ++i) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) {
      pid = -1;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  pid = -1;
}

}  // namespace testing_support
