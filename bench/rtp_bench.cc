// Packetising and sending access units through loopback sendto, beside a bare loop that sends
// the same datagrams with no packetiser. Prints figures; asserts nothing.
#include <winsock2.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/control/platform_control.h"
#include "rtp/rtp_sender.h"
#include "test/support/rtp_reassembly.h"
#include "test/support/udp_receiver.h"

using testing_support::Bytes;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRounds = 21;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// An access unit of about `bytes`: parameter sets and one slice for key frames, slices otherwise.
Bytes accessUnit(size_t bytes) {
  return testing_support::annexB({testing_support::makeNal(0x67, 20), testing_support::makeNal(0x68, 4),
                                  testing_support::makeNal(0x65, bytes - 40)});
}

// The datagrams the packetiser makes of `unit`, caught on a receiver of their own.
std::vector<Bytes> datagramsOf(const Bytes& unit) {
  testing_support::UdpReceiver receiver;
  RtpSender sender;
  sender.open("127.0.0.1", receiver.port(), 1, 96);
  sender.sendAccessUnit(unit.data(), unit.size(), 0, true, true);
  return receiver.receiveAll(100);
}

struct Figures {
  double seconds = 0;
  uint64_t datagrams = 0;
  uint64_t bytes = 0;
};

Figures packetised(RtpSender& sender, const Bytes& unit, int units) {
  uint64_t before = platform::control::datagramsSent();
  Clock::time_point start = Clock::now();
  for (int i = 0; i < units; ++i) sender.sendAccessUnit(unit.data(), unit.size(), uint32_t(i * 3000), true, true);
  Figures f;
  f.seconds = secondsSince(start);
  f.datagrams = platform::control::datagramsSent() - before;
  f.bytes = uint64_t(units) * unit.size();
  return f;
}

Figures bare(SOCKET s, const sockaddr_in& to, const std::vector<Bytes>& datagrams, int units, uint64_t unitBytes) {
  Clock::time_point start = Clock::now();
  for (int i = 0; i < units; ++i)
    for (const Bytes& d : datagrams)
      sendto(s, reinterpret_cast<const char*>(d.data()), int(d.size()), 0, reinterpret_cast<const sockaddr*>(&to),
             int(sizeof to));
  Figures f;
  f.seconds = secondsSince(start);
  f.datagrams = uint64_t(units) * datagrams.size();
  f.bytes = uint64_t(units) * unitBytes;
  return f;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main() {
  testing_support::UdpReceiver sink;  // bound but never read: the kernel drops what overflows
  RtpSender sender;
  if (!sink.ok() || !sender.open("127.0.0.1", sink.port(), 1, 96)) {
    std::fprintf(stderr, "cannot open loopback sockets\n");
    return 1;
  }
  WSADATA data;
  std::memset(&data, 0, sizeof data);
  WSAStartup(MAKEWORD(2, 2), &data);
  SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in to;
  std::memset(&to, 0, sizeof to);
  to.sin_family = AF_INET;
  to.sin_port = htons(sink.port());
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

  std::printf("%-8s %10s %12s %10s | %12s %10s | %9s\n", "unit", "datagrams", "dgram/s", "MB/s", "bare dgram/s",
              "bare MB/s", "overhead");
  for (size_t size : {size_t(2) << 10, size_t(60) << 10, size_t(400) << 10}) {
    Bytes unit = accessUnit(size);
    std::vector<Bytes> datagrams = datagramsOf(unit);
    int units = int(std::max<size_t>(20, (16u << 20) / size));  // about 16 MB a round
    std::vector<double> packTimes, bareTimes;
    Figures p, b;
    for (int round = 0; round < kRounds; ++round) {  // alternate, so both see the same machine
      if (round % 2 == 0) p = packetised(sender, unit, units);
      b = bare(s, to, datagrams, units, unit.size());
      if (round % 2 == 1) p = packetised(sender, unit, units);
      packTimes.push_back(p.seconds);
      bareTimes.push_back(b.seconds);
    }
    double packSeconds = median(packTimes), bareSeconds = median(bareTimes);
    std::printf("%5zu KB %10zu %12.0f %10.1f | %12.0f %10.1f | %8.1f%%\n", size >> 10, datagrams.size(),
                double(p.datagrams) / packSeconds, double(p.bytes) / packSeconds / 1e6,
                double(b.datagrams) / bareSeconds, double(b.bytes) / bareSeconds / 1e6,
                100.0 * (packSeconds - bareSeconds) / bareSeconds);
  }
  closesocket(s);
  WSACleanup();
  return 0;
}
