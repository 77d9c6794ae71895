#include "test/support/udp_receiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace testing_support {

UdpReceiver::UdpReceiver() {
  fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  int bufferBytes = 8 << 20;  // large key frames arrive as one burst
  ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ::close(fd);
    fd = -1;
    return;
  }
  boundPort = ntohs(address.sin_port);
}

UdpReceiver::~UdpReceiver() {
  if (fd >= 0) ::close(fd);
}

std::vector<std::vector<uint8_t>> UdpReceiver::receive(size_t count, int timeoutMs) {
  std::vector<std::vector<uint8_t>> datagrams;
  std::vector<uint8_t> buffer(65536);
  while (fd >= 0 && datagrams.size() < count) {
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, timeoutMs) <= 0) break;
    ssize_t size = ::recv(fd, buffer.data(), buffer.size(), 0);
    if (size < 0) break;
    datagrams.emplace_back(buffer.begin(), buffer.begin() + size);
  }
  return datagrams;
}

std::vector<std::vector<uint8_t>> UdpReceiver::receiveAll(int timeoutMs) { return receive(SIZE_MAX, timeoutMs); }

}  // namespace testing_support
