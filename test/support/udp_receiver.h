// A real UDP socket on loopback that collects the datagrams the system sends. Kept free of the
// SDK-named headers so that tests can include it beside them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace testing_support {

class UdpReceiver {
 public:
  UdpReceiver();  // binds 127.0.0.1 on a free port
  ~UdpReceiver();
  UdpReceiver(const UdpReceiver&) = delete;
  UdpReceiver& operator=(const UdpReceiver&) = delete;

  bool ok() const { return fd >= 0; }
  uint16_t port() const { return boundPort; }

  // Every datagram that arrives within `timeoutMs` of the last one (or of the call).
  std::vector<std::vector<uint8_t>> receiveAll(int timeoutMs = 200);
  // Reads up to `count` datagrams, waiting at most `timeoutMs` for each.
  std::vector<std::vector<uint8_t>> receive(size_t count, int timeoutMs = 1000);

 private:
  int fd = -1;
  uint16_t boundPort = 0;
};

}  // namespace testing_support
