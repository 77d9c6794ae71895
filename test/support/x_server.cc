#include "test/support/x_server.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <thread>

namespace testing_support {
namespace {

constexpr int kStartMs = 10000;

// Waits for `child` up to `ms`; true when it has ended and been reaped.
bool reap(pid_t child, int ms) {
  for (int waited = 0; waited <= ms; waited += 5) {
    if (waitpid(child, nullptr, WNOHANG) == child) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace

bool XvfbServer::installed() { return access("/usr/bin/Xvfb", X_OK) == 0 || std::system("command -v Xvfb >/dev/null 2>&1") == 0; }

XvfbServer::XvfbServer(uint32_t width, uint32_t height) {
  int fds[2];
  if (pipe(fds) != 0) return;
  std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
  std::string fd = std::to_string(fds[1]);
  pid = fork();
  if (pid == 0) {
    close(fds[0]);
    int null = open("/dev/null", O_RDWR);
    if (null >= 0) {
      dup2(null, STDOUT_FILENO);
      dup2(null, STDERR_FILENO);
    }
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(), "-nolisten", "tcp",
           "-noreset", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  if (pid < 0) {
    close(fds[0]);
    return;
  }
  // Xvfb writes its display number and a newline once it accepts connections.
  std::string number;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartMs);
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd p{fds[0], POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    char c = 0;
    if (read(fds[0], &c, 1) != 1) break;
    if (c == '\n') {
      display = ":" + number;
      break;
    }
    number += c;
  }
  close(fds[0]);
  if (display.empty()) kill();
}

void XvfbServer::kill() {
  if (pid <= 0) return;
  ::kill(pid, SIGKILL);
  reap(pid, 5000);
  pid = -1;
  reserveDisplayNumber();
}

// A server that starts beside this one takes the first free number, which would make a killed
// server's display reachable again. Holding its abstract socket name keeps the number taken: the
// server refuses a number whose socket is in use, and a client's connect there is refused.
void XvfbServer::reserveDisplayNumber() {
  if (display.size() < 2 || reservation >= 0) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string path = "/tmp/.X11-unix/X" + display.substr(1);
  path.copy(address.sun_path + 1, sizeof address.sun_path - 2);  // sun_path[0] == 0: abstract
  reservation = socket(AF_UNIX, SOCK_STREAM, 0);
  if (reservation < 0) return;
  socklen_t length = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + path.size());
  if (bind(reservation, reinterpret_cast<sockaddr*>(&address), length) != 0) {
    close(reservation);
    reservation = -1;
  }
}

XPainter::XPainter(const std::string& name) : display(XOpenDisplay(name.c_str())) {}

XPainter::~XPainter() {
  if (display != nullptr) XCloseDisplay(display);
}

void XPainter::fill(uint32_t colour, int x, int y, unsigned width, unsigned height) {
  Window root = DefaultRootWindow(display);
  GC gc = XCreateGC(display, root, 0, nullptr);
  XSetForeground(display, gc, colour & 0xFFFFFF);
  XFillRectangle(display, root, gc, x, y, width, height);
  XFreeGC(display, gc);
  XSync(display, False);
}

void XPainter::copyArea(int x, int y, unsigned width, unsigned height, int toX, int toY) {
  Window root = DefaultRootWindow(display);
  XGCValues values{};
  values.graphics_exposures = False;
  GC gc = XCreateGC(display, root, GCGraphicsExposures, &values);
  XCopyArea(display, root, root, gc, x, y, width, height, toX, toY);
  XFreeGC(display, gc);
  XSync(display, False);
}

void XPainter::setBackground(uint32_t colour) {
  Window root = DefaultRootWindow(display);
  XSetWindowBackground(display, root, colour & 0xFFFFFF);
  XClearWindow(display, root);
  XSync(display, False);
}

void XPainter::warpPointer(int x, int y) {
  XWarpPointer(display, None, DefaultRootWindow(display), 0, 0, 0, 0, x, y);
  XSync(display, False);
}

void XPainter::provokeError() {
  XMapWindow(display, Window(0x7FFFFFF0));
  XSync(display, False);
}

XvfbServer::~XvfbServer() {
  if (pid > 0) {
    ::kill(pid, SIGTERM);
    if (!reap(pid, 3000)) kill();
  }
  if (reservation >= 0) close(reservation);
}

}  // namespace testing_support
