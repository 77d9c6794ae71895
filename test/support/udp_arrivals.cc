#include "test/support/udp_arrivals.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace testing_support {

UdpArrivals::UdpArrivals() {
  fd = socket(AF_INET, SOCK_DGRAM, 0);
  int buffer = 16 << 20;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  boundPort = ntohs(address.sin_port);
  thread = std::thread([this] { run(); });
}

UdpArrivals::~UdpArrivals() {
  stop();
  close(fd);
}

void UdpArrivals::stop() {
  done.store(true);
  if (thread.joinable()) thread.join();
}

void UdpArrivals::run() {
  uint8_t packet[2048];
  while (!done.load()) {
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, 50) <= 0) continue;
    ssize_t got = recv(fd, packet, sizeof packet, 0);
    if (got < 12) continue;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    RtpArrival arrival;
    arrival.monotonic100ns = int64_t(now.tv_sec) * 10000000 + now.tv_nsec / 100;
    arrival.marker = (packet[1] & 0x80) != 0;
    arrival.rtpTimestamp = uint32_t(packet[4]) << 24 | uint32_t(packet[5]) << 16 | uint32_t(packet[6]) << 8 | packet[7];
    collected.push_back(arrival);
  }
}

}  // namespace testing_support
