// A loopback UDP socket that notes when each RTP datagram arrives, on a thread of its own, for
// benchmarks that measure delay. Kept free of the SDK-named headers, like UdpReceiver.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace testing_support {

struct RtpArrival {
  int64_t monotonic100ns = 0;  // CLOCK_MONOTONIC in 100 ns ticks: the platform's performance counter
  uint32_t rtpTimestamp = 0;
  bool marker = false;
};

class UdpArrivals {
 public:
  UdpArrivals();  // binds 127.0.0.1 on a free port and starts collecting
  ~UdpArrivals();
  UdpArrivals(const UdpArrivals&) = delete;
  UdpArrivals& operator=(const UdpArrivals&) = delete;

  uint16_t port() const { return boundPort; }
  // Stops collecting; the arrivals are then stable.
  void stop();
  const std::vector<RtpArrival>& arrivals() const { return collected; }

 private:
  void run();

  int fd = -1;
  uint16_t boundPort = 0;
  std::atomic<bool> done{false};
  std::vector<RtpArrival> collected;
  std::thread thread;
};

}  // namespace testing_support
