#include "bench/compare/rtp_depacketiser.h"

namespace {

constexpr uint8_t kStapA = 24, kFuA = 28;

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

}  // namespace

void RtpDepacketiser::push(const uint8_t* d, size_t size, int64_t arrivalUs) {
  if (size < 12 || d[0] >> 6 != 2) return;
  // The first sender heard is the one measured; anything else on the port is left out.
  const uint32_t packetSsrc = be32(d + 8);
  if (haveSsrc && packetSsrc != ssrc) return;
  ssrc = packetSsrc;
  haveSsrc = true;

  size_t offset = 12 + size_t(d[0] & 0x0F) * 4;
  if (d[0] & 0x10) {
    if (size < offset + 4) return;
    offset += 4 + size_t(d[offset + 2] << 8 | d[offset + 3]) * 4;
  }
  const size_t end = d[0] & 0x20 ? size - d[size - 1] : size;
  if (offset >= end || end > size) return;

  const uint16_t sequence = uint16_t(d[2] << 8 | d[3]);
  if (haveSequence) {
    const uint16_t step = uint16_t(sequence - lastSequence);
    if (step == 0 || step >= 0x8000) return;  // late or repeated
    if (step > 1) {
      lostCount += step - 1;
      pending.damaged = true;
      inFragment = false;
    }
  }
  lastSequence = sequence;
  haveSequence = true;
  ++packetCount;

  const uint32_t timestamp = be32(d + 4);
  if (havePending && timestamp != pending.timestamp) {
    const bool gap = pending.damaged;
    finish();
    // The lost packets may as well have been this picture's first ones.
    pending.damaged = gap;
  }
  havePending = true;
  pending.timestamp = timestamp;
  pending.lastArrivalUs = arrivalUs;
  depacketise(d + offset, end - offset);
  if (d[1] & 0x80) finish();
}

void RtpDepacketiser::depacketise(const uint8_t* p, size_t size) {
  const uint8_t type = p[0] & 0x1F;
  if (type >= 1 && type <= 23) {
    addNal(p, size);
  } else if (type == kStapA) {
    for (size_t pos = 1; pos < size;) {
      const size_t nalSize = pos + 2 <= size ? size_t(p[pos] << 8 | p[pos + 1]) : 0;
      if (nalSize == 0 || pos + 2 + nalSize > size) {
        pending.damaged = true;
        return;
      }
      addNal(p + pos + 2, nalSize);
      pos += 2 + nalSize;
    }
  } else if (type == kFuA && size >= 3) {
    const bool start = p[1] & 0x80, last = p[1] & 0x40;
    if (start) {
      if (inFragment) pending.damaged = true;  // the previous unit's last fragment never came
      // The unit's own header is rebuilt from the indicator's F and NRI bits and the FU type.
      const uint8_t header = uint8_t((p[0] & 0xE0) | (p[1] & 0x1F));
      addNal(&header, 1);
      inFragment = true;
    } else if (!inFragment) {
      pending.damaged = true;
      return;
    }
    pending.annexB.insert(pending.annexB.end(), p + 2, p + size);
    if (last) inFragment = false;
  } else {
    pending.damaged = true;  // interleaved forms don't exist in packetization-mode 1
  }
}

void RtpDepacketiser::addNal(const uint8_t* nal, size_t size) {
  pending.annexB.insert(pending.annexB.end(), {0, 0, 0, 1});
  pending.annexB.insert(pending.annexB.end(), nal, nal + size);
  const uint8_t type = nal[0] & 0x1F;
  if (type == 1 || type == 5) hasSlice = true;
}

void RtpDepacketiser::finish() {
  if (inFragment) pending.damaged = true;  // its last fragment never came
  // Parameter sets sent on their own stay in front of the next picture.
  if (hasSlice || pending.damaged) {
    emit(std::move(pending));
    pending = AccessUnit{};
  }
  havePending = hasSlice = inFragment = false;
}

void RtpDepacketiser::flush() {
  if (havePending) finish();
}
