#include "platform/winsock/posix_udp.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace platform::posix {
namespace {

int winsockError(int code) {
  switch (code) {
    case EACCES: case EPERM: return 10013;         // WSAEACCES
    case EFAULT: return 10014;                     // WSAEFAULT
    case EINVAL: return 10022;                     // WSAEINVAL
    case EMFILE: case ENFILE: return 10024;        // WSAEMFILE
    case EAGAIN: return 10035;                     // WSAEWOULDBLOCK
    case EBADF: case ENOTSOCK: return 10038;       // WSAENOTSOCK
    case EDESTADDRREQ: return 10039;               // WSAEDESTADDRREQ
    case EMSGSIZE: return 10040;                   // WSAEMSGSIZE
    case EAFNOSUPPORT: return 10047;               // WSAEAFNOSUPPORT
    case EADDRNOTAVAIL: return 10049;              // WSAEADDRNOTAVAIL
    case ENETUNREACH: return 10051;                // WSAENETUNREACH
    case ENOBUFS: case ENOMEM: return 10055;       // WSAENOBUFS
    case ECONNREFUSED: return 10061;               // WSAECONNREFUSED
    case EHOSTUNREACH: return 10065;               // WSAEHOSTUNREACH
    default: return 10022;
  }
}

}  // namespace

int openUdpSocket(int* error) {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  if (fd < 0) *error = winsockError(errno);
  return fd;
}

int sendDatagram(int fd, const void* data, int length, uint32_t addressNetworkOrder, uint16_t portNetworkOrder,
                 int* error) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = portNetworkOrder;
  to.sin_addr.s_addr = addressNetworkOrder;
  ssize_t sent;
  do {
    sent = ::sendto(fd, data, size_t(length), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) {
    *error = winsockError(errno);
    return -1;
  }
  return int(sent);
}

void closeSocket(int fd) { ::close(fd); }

bool parseIPv4(const char* text, uint8_t bytes[4]) {
  in_addr address{};
  if (::inet_pton(AF_INET, text, &address) != 1) return false;
  std::memcpy(bytes, &address.s_addr, 4);
  return true;
}

}  // namespace platform::posix
