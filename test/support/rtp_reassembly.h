// Reads RTP datagrams back: the fixed header, and the NAL units that single NAL unit, STAP-A and
// FU-A packets carry, put together again as a receiver would.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace testing_support {

using Bytes = std::vector<uint8_t>;

struct RtpPacket {
  bool marker = false;
  uint8_t payloadType = 0;
  uint16_t sequence = 0;
  uint32_t timestamp = 0;
  uint32_t ssrc = 0;
  Bytes payload;
};

// False if the datagram is no RTP version-2 packet of at least 12 bytes.
bool parseRtp(const Bytes& datagram, RtpPacket* packet);

// The NAL units of the packets, in order. Sets `ok` false on a malformed packet or a broken run
// of fragments.
std::vector<Bytes> reassembleNalUnits(const std::vector<RtpPacket>& packets, bool* ok);

// An Annex B access unit made of `nals`, each behind a four-byte start code.
Bytes annexB(const std::vector<Bytes>& nals);
// A NAL unit of `size` bytes with header byte `header`, its body free of start codes.
Bytes makeNal(uint8_t header, size_t size, uint8_t seed = 0);

}  // namespace testing_support
