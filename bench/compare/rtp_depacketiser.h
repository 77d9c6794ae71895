// RTP datagrams of one H.264 stream back into access units (single NAL unit, STAP-A and FU-A
// packets; any number of slices per picture), each with the arrival time of its last datagram.
// A picture ends at the marker bit or, for a sender that leaves it out, at the next timestamp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

struct AccessUnit {
  uint32_t timestamp = 0;
  int64_t lastArrivalUs = 0;     // CLOCK_MONOTONIC
  std::vector<uint8_t> annexB;   // every NAL unit behind a four-byte start code
  bool damaged = false;          // packets lost or malformed: not decodable as it stands
};

class RtpDepacketiser {
 public:
  explicit RtpDepacketiser(std::function<void(AccessUnit&&)> onAccessUnit) : emit(std::move(onAccessUnit)) {}

  void push(const uint8_t* datagram, size_t size, int64_t arrivalUs);
  // The end of the stream: a pending picture whose marker never came.
  void flush();

  uint64_t packets() const { return packetCount; }
  uint64_t lost() const { return lostCount; }

 private:
  void depacketise(const uint8_t* payload, size_t size);
  void addNal(const uint8_t* nal, size_t size);
  void finish();

  std::function<void(AccessUnit&&)> emit;
  AccessUnit pending;
  bool havePending = false, hasSlice = false, inFragment = false;
  bool haveSequence = false, haveSsrc = false;
  uint16_t lastSequence = 0;
  uint32_t ssrc = 0;
  uint64_t packetCount = 0, lostCount = 0;
};
