// delay_receiver: receives one RTP H.264 stream on a UDP port, notes when each picture's last
// datagram arrived, and afterwards decodes every picture and reads the frame code in it.
//   delay_receiver [--port <n>]      (0, the default, takes any free port)
// Prints "port <n>" once listening and "first" at the first picture. Reads commands on stdin:
// "start" opens the measured window, "stop" (or the end of stdin) closes it. It then stops
// receiving, decodes, and prints one JSON line of figures for the window.
//
// Decoding waits until the window is over so that it takes no CPU from the sender measured.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "bench/compare/picture_report.h"
#include "bench/compare/rtp_depacketiser.h"

namespace {

constexpr int kBatch = 64;
constexpr size_t kDatagram = 65536;

int64_t usOf(const timespec& t) { return int64_t(t.tv_sec) * 1'000'000 + t.tv_nsec / 1000; }

int64_t nowUs(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return usOf(t);
}

int openSocket(int port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  // Room for a few seconds of a fast stream: a datagram dropped here would count against the sender.
  const int buffer = 32 << 20, on = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0)
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  // The kernel's arrival time, not when this process got round to reading the datagram.
  setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(uint16_t(port));
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

int boundPort(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

class Receiver {
 public:
  explicit Receiver(int socket) : fd(socket), buffers(kBatch * kDatagram), controls(kBatch) {
    for (int i = 0; i < kBatch; ++i) {
      iovecs[i] = {&buffers[size_t(i) * kDatagram], kDatagram};
      messages[i].msg_hdr.msg_iov = &iovecs[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
  }

  // Everything waiting on the socket.
  void drain(RtpDepacketiser& depacketiser) {
    for (;;) {
      for (int i = 0; i < kBatch; ++i) {
        messages[i].msg_hdr.msg_control = controls[size_t(i)].bytes;
        messages[i].msg_hdr.msg_controllen = sizeof controls[size_t(i)].bytes;
      }
      const int count = recvmmsg(fd, messages, kBatch, MSG_DONTWAIT, nullptr);
      if (count <= 0) return;
      // CLOCK_REALTIME differs from CLOCK_MONOTONIC by an offset that only a clock step changes.
      const int64_t monotonic = nowUs(CLOCK_MONOTONIC);
      const int64_t offset = nowUs(CLOCK_REALTIME) - monotonic;
      for (int i = 0; i < count; ++i) {
        if (messages[i].msg_hdr.msg_flags & MSG_TRUNC) continue;
        depacketiser.push(&buffers[size_t(i) * kDatagram], messages[i].msg_len, arrival(messages[i].msg_hdr, offset, monotonic));
      }
    }
  }

 private:
  static int64_t arrival(msghdr& header, int64_t offset, int64_t fallback) {
    for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
      if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
        timespec stamp{};
        std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
        return usOf(stamp) - offset;
      }
    }
    return fallback;
  }

  struct Control {
    alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(timespec)) + 64];
  };
  int fd;
  std::vector<uint8_t> buffers;
  std::vector<Control> controls;
  iovec iovecs[kBatch]{};
  mmsghdr messages[kBatch]{};
};

}  // namespace

int main(int argc, char** argv) {
  int port = 0;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) port = std::atoi(argv[++i]);
    else return std::fprintf(stderr, "usage: delay_receiver [--port <n>]\n"), 2;
  }
  const int fd = openSocket(port);
  if (fd < 0) return std::fprintf(stderr, "delay_receiver: cannot listen on port %d\n", port), 1;
  std::printf("port %d\n", boundPort(fd));
  std::fflush(stdout);

  std::vector<AccessUnit> units;
  RtpDepacketiser depacketiser([&](AccessUnit&& unit) {
    if (units.empty()) std::printf("first\n"), std::fflush(stdout);
    units.push_back(std::move(unit));
  });
  Receiver receiver(fd);
  MeasuredWindow window;
  std::string commands;
  bool started = false;
  for (bool running = true; running;) {
    pollfd polls[2] = {{fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (poll(polls, 2, 200) < 0) continue;
    if (polls[0].revents & POLLIN) receiver.drain(depacketiser);
    if (polls[1].revents & (POLLIN | POLLHUP)) {
      char chunk[256];
      const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
      if (got > 0) commands.append(chunk, size_t(got));
      for (size_t end; (end = commands.find('\n')) != std::string::npos; commands.erase(0, end + 1)) {
        const std::string command = commands.substr(0, end);
        if (command == "start" && !started) window.startUs = nowUs(CLOCK_MONOTONIC), started = true;
        if (command == "stop") running = false;
      }
      if (got <= 0) running = false;
    }
  }
  receiver.drain(depacketiser);
  window.stopUs = nowUs(CLOCK_MONOTONIC);
  if (!started) window.startUs = window.stopUs;
  depacketiser.flush();
  close(fd);
  std::printf("stopped\n");
  std::fflush(stdout);

  const WindowFigures figures = measure(units, window);
  std::printf("%s\n", toJson(figures, depacketiser.lost()).c_str());
  return 0;
}
