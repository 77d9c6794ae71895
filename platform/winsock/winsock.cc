// Winsock over BSD sockets: the startup count, socket handles, and error numbers as Windows
// gives them. A SOCKET is the kernel descriptor.
#include <cstring>
#include <mutex>
#include <set>

#include "platform/control/platform_control.h"
#include "platform/core/call_gate.h"
#include "platform/winsock/posix_udp.h"
#include "winsock2.h"
#include "ws2tcpip.h"

namespace {

struct WinsockState {
  std::mutex mutex;
  int startups = 0;
  std::set<SOCKET> sockets;
};

WinsockState& state() {
  // Never destroyed: threads of the host may still call in while the process exits.
  static WinsockState* instance = new WinsockState;
  return *instance;
}

thread_local int lastWinsockError = 0;

int fail(int error) {
  lastWinsockError = error;
  return SOCKET_ERROR;
}

bool isOpen(SOCKET s) {
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  return st.sockets.count(s) != 0;
}

}  // namespace

int WSAAPI WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData) {
  int64_t value = 0;
  if (platform::plannedFault("WSAStartup", &value)) return int(value);
  if (lpWSAData == nullptr) return WSAEFAULT;
  if ((wVersionRequested & 0xFF) < 2) return WSAVERNOTSUPPORTED;
  std::memset(lpWSAData, 0, sizeof *lpWSAData);
  lpWSAData->wVersion = MAKEWORD(2, 2);
  lpWSAData->wHighVersion = MAKEWORD(2, 2);
  std::strcpy(lpWSAData->szDescription, "WinSock 2.0");
  std::strcpy(lpWSAData->szSystemStatus, "Running");
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  ++st.startups;
  return 0;
}

int WSAAPI WSACleanup(void) {
  int64_t value = 0;
  if (platform::plannedFault("WSACleanup", &value)) return fail(int(value));
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  if (st.startups == 0) return fail(WSANOTINITIALISED);
  --st.startups;
  return 0;
}

int WSAAPI WSAGetLastError(void) { return lastWinsockError; }

SOCKET WSAAPI socket(int af, int type, int protocol) {
  int64_t value = 0;
  if (platform::plannedFault("socket", &value)) {
    lastWinsockError = WSAEMFILE;
    return SOCKET(value);
  }
  {
    WinsockState& st = state();
    std::lock_guard<std::mutex> lock(st.mutex);
    if (st.startups == 0) {
      lastWinsockError = WSANOTINITIALISED;
      return INVALID_SOCKET;
    }
  }
  if (af != AF_INET) {
    lastWinsockError = WSAEAFNOSUPPORT;
    return INVALID_SOCKET;
  }
  if (type != SOCK_DGRAM || (protocol != 0 && protocol != IPPROTO_UDP)) {
    lastWinsockError = WSAEPROTONOSUPPORT;
    return INVALID_SOCKET;
  }
  int error = 0;
  int fd = platform::posix::openUdpSocket(&error);
  if (fd < 0) {
    lastWinsockError = error;
    return INVALID_SOCKET;
  }
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  st.sockets.insert(SOCKET(fd));
  return SOCKET(fd);
}

int WSAAPI sendto(SOCKET s, const char* buf, int len, int flags, const struct sockaddr* to, int tolen) {
  int64_t value = 0;
  bool faulted = platform::plannedFault("sendto", &value);
  // A planned short send really sends that many bytes, so the receiver sees the cut datagram.
  if (faulted && (value <= 0 || value >= len)) return value < 0 ? fail(WSAENOBUFS) : int(value);
  int length = faulted ? int(value) : len;
  if (!isOpen(s)) return fail(WSAENOTSOCK);
  if (buf == nullptr || len < 0 || to == nullptr) return fail(WSAEFAULT);
  if (flags != 0) return fail(WSAEINVAL);
  if (tolen < int(sizeof(sockaddr_in)) || to->sa_family != AF_INET) return fail(WSAEFAULT);
  const sockaddr_in* target = reinterpret_cast<const sockaddr_in*>(to);
  int error = 0;
  int sent = platform::posix::sendDatagram(int(s), buf, length, target->sin_addr.s_addr, target->sin_port, &error);
  if (sent < 0) return fail(error);
  platform::countDatagram();
  return sent;
}

int WSAAPI closesocket(SOCKET s) {
  int64_t value = 0;
  if (platform::plannedFault("closesocket", &value)) return fail(int(value));
  {
    WinsockState& st = state();
    std::lock_guard<std::mutex> lock(st.mutex);
    if (st.sockets.erase(s) == 0) return fail(WSAENOTSOCK);
  }
  platform::posix::closeSocket(int(s));
  return 0;
}

// The byte-order calls pass the gate too, so that a test can count them; they cannot fail.
u_short WSAAPI htons(u_short hostshort) {
  platform::plannedHresult("htons");
  return __builtin_bswap16(hostshort);
}
u_short WSAAPI ntohs(u_short netshort) {
  platform::plannedHresult("ntohs");
  return __builtin_bswap16(netshort);
}
ULONG WSAAPI htonl(ULONG hostlong) {
  platform::plannedHresult("htonl");
  return __builtin_bswap32(hostlong);
}
ULONG WSAAPI ntohl(ULONG netlong) {
  platform::plannedHresult("ntohl");
  return __builtin_bswap32(netlong);
}

INT WSAAPI inet_pton(INT Family, PCSTR pszAddrString, PVOID pAddrBuf) {
  int64_t value = 0;
  if (platform::plannedFault("inet_pton", &value)) return INT(value);
  if (Family != AF_INET) return fail(WSAEAFNOSUPPORT);
  if (pszAddrString == nullptr || pAddrBuf == nullptr) return fail(WSAEFAULT);
  uint8_t bytes[4];
  if (!platform::posix::parseIPv4(pszAddrString, bytes)) return 0;
  std::memcpy(pAddrBuf, bytes, 4);
  return 1;
}

namespace platform::control {

int winsockStartupCount() {
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  return st.startups;
}

int openSocketCount() {
  WinsockState& st = state();
  std::lock_guard<std::mutex> lock(st.mutex);
  return int(st.sockets.size());
}

}  // namespace platform::control
