#include "test/support/rtp_reassembly.h"

namespace testing_support {

bool parseRtp(const Bytes& datagram, RtpPacket* packet) {
  if (datagram.size() < 12 || (datagram[0] >> 6) != 2) return false;
  packet->marker = (datagram[1] & 0x80) != 0;
  packet->payloadType = datagram[1] & 0x7F;
  packet->sequence = uint16_t((datagram[2] << 8) | datagram[3]);
  packet->timestamp = (uint32_t(datagram[4]) << 24) | (uint32_t(datagram[5]) << 16) | (uint32_t(datagram[6]) << 8) |
                      datagram[7];
  packet->ssrc = (uint32_t(datagram[8]) << 24) | (uint32_t(datagram[9]) << 16) | (uint32_t(datagram[10]) << 8) |
                 datagram[11];
  packet->payload.assign(datagram.begin() + 12, datagram.end());
  return true;
}

std::vector<Bytes> reassembleNalUnits(const std::vector<RtpPacket>& packets, bool* ok) {
  std::vector<Bytes> nals;
  Bytes fragmented;
  bool inFragments = false;
  *ok = true;
  for (const RtpPacket& packet : packets) {
    const Bytes& p = packet.payload;
    if (p.empty()) {
      *ok = false;
      continue;
    }
    uint8_t type = p[0] & 0x1F;
    if (type == 24) {
      for (size_t pos = 1; pos < p.size();) {
        if (pos + 2 > p.size()) {
          *ok = false;
          break;
        }
        size_t size = size_t(p[pos] << 8 | p[pos + 1]);
        pos += 2;
        if (size == 0 || pos + size > p.size()) {
          *ok = false;
          break;
        }
        nals.emplace_back(p.begin() + long(pos), p.begin() + long(pos + size));
        pos += size;
      }
    } else if (type == 28) {
      if (p.size() < 3) {
        *ok = false;
        continue;
      }
      bool start = (p[1] & 0x80) != 0;
      bool end = (p[1] & 0x40) != 0;
      if (start) {
        if (inFragments) *ok = false;
        fragmented.assign(1, uint8_t((p[0] & 0xE0) | (p[1] & 0x1F)));
        inFragments = true;
      } else if (!inFragments) {
        *ok = false;
        continue;
      }
      fragmented.insert(fragmented.end(), p.begin() + 2, p.end());
      if (end) {
        nals.push_back(fragmented);
        inFragments = false;
      }
    } else {
      nals.push_back(p);
    }
  }
  if (inFragments) *ok = false;
  return nals;
}

Bytes annexB(const std::vector<Bytes>& nals) {
  Bytes buffer;
  for (const Bytes& nal : nals) {
    buffer.insert(buffer.end(), {0, 0, 0, 1});
    buffer.insert(buffer.end(), nal.begin(), nal.end());
  }
  return buffer;
}

Bytes makeNal(uint8_t header, size_t size, uint8_t seed) {
  Bytes nal(size);
  if (size == 0) return nal;
  nal[0] = header;
  for (size_t i = 1; i < size; ++i) nal[i] = uint8_t(0x10 + (i * 7 + seed) % 0xE0);  // never 0 or 1
  return nal;
}

}  // namespace testing_support
