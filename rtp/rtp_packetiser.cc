// The packetising half of RtpSender: RTP with H.264 payload in non-interleaved mode. Every
// packet is built in one array reserved for its final size, and each NAL byte is copied once.
#include <algorithm>

#include "rtp/rtp_sender.h"

namespace {

constexpr uint8_t kStapA = 24;
constexpr uint8_t kFuA = 28;

void writeBigEndian16(uint8_t* out, uint16_t value) {
  out[0] = uint8_t(value >> 8);
  out[1] = uint8_t(value);
}

void writeBigEndian32(uint8_t* out, uint32_t value) {
  out[0] = uint8_t(value >> 24);
  out[1] = uint8_t(value >> 16);
  out[2] = uint8_t(value >> 8);
  out[3] = uint8_t(value);
}

// 1 byte of STAP-A header, then a 2-byte size and the bytes of each unit.
uint64_t aggregateSize(const std::vector<NalUnit>& nals) {
  uint64_t total = 1;
  for (const NalUnit& nal : nals) total += 2 + nal.size;
  return total;
}

bool isParameterSet(const NalUnit& nal) { return nal.type == kNalSps || nal.type == kNalPps; }

}  // namespace

std::vector<uint8_t> RtpSender::beginPacket(size_t payloadBytes, uint32_t timestamp, bool marker) {
  std::vector<uint8_t> packet;
  packet.reserve(kRtpHeaderBytes + payloadBytes);
  packet.resize(kRtpHeaderBytes);
  packet[0] = 0x80;  // version 2, no padding, no extension, no CSRC
  packet[1] = uint8_t((marker ? 0x80 : 0) | (payloadType & 0x7F));
  writeBigEndian16(&packet[2], sequence++);  // the number is used up whether the send works or not
  writeBigEndian32(&packet[4], timestamp);
  writeBigEndian32(&packet[8], ssrc);
  return packet;
}

bool RtpSender::sendNalUnit(const NalUnit& nal, uint32_t timestamp, bool marker) {
  if (nal.size <= kRtpMaxPayloadBytes) {
    std::vector<uint8_t> packet = beginPacket(nal.size, timestamp, marker);
    packet.insert(packet.end(), nal.data, nal.data + nal.size);
    return sendDatagram(packet.data(), packet.size());
  }
  // FU-A: the header byte travels in the indicator and FU header, never as payload.
  const uint8_t header = nal.data[0];
  bool anySent = false;
  for (uint64_t offset = 1; offset < nal.size;) {
    uint64_t length = std::min<uint64_t>(nal.size - offset, kFuAMaxFragmentBytes);
    bool last = offset + length == nal.size;
    uint8_t fuHeader = header & 0x1F;
    if (offset == 1) fuHeader |= 0x80;
    if (last) fuHeader |= 0x40;
    std::vector<uint8_t> packet = beginPacket(2 + length, timestamp, marker && last);
    packet.push_back(uint8_t((header & 0xE0) | kFuA));
    packet.push_back(fuHeader);
    packet.insert(packet.end(), nal.data + offset, nal.data + offset + length);
    // A failed fragment doesn't stop the run.
    if (sendDatagram(packet.data(), packet.size())) anySent = true;
    offset += length;
  }
  return anySent;
}

bool RtpSender::sendAggregate(const std::vector<NalUnit>& nals, uint32_t timestamp, bool marker) {
  if (nals.empty()) return false;
  uint64_t size = aggregateSize(nals);
  if (size > kRtpMaxPayloadBytes) return false;
  uint8_t nri = 0;
  for (const NalUnit& nal : nals) nri = std::max(nri, nal.nri);
  std::vector<uint8_t> packet = beginPacket(size, timestamp, marker);
  packet.push_back(uint8_t((nri << 5) | kStapA));
  for (const NalUnit& nal : nals) {
    uint8_t length[2];
    writeBigEndian16(length, uint16_t(nal.size));
    packet.insert(packet.end(), length, length + 2);
    packet.insert(packet.end(), nal.data, nal.data + nal.size);
  }
  return sendDatagram(packet.data(), packet.size());
}

bool RtpSender::sendParameterSets(const std::vector<NalUnit>& parameterSets, uint32_t timestamp) {
  if (parameterSets.size() >= 2 && aggregateSize(parameterSets) <= kRtpMaxPayloadBytes)
    return sendAggregate(parameterSets, timestamp, false);
  return sendEachUnit(parameterSets, timestamp, false);
}

// Each unit on its own, the marker (if asked) on the last one only.
bool RtpSender::sendEachUnit(const std::vector<NalUnit>& nals, uint32_t timestamp, bool marker) {
  bool anySent = false;
  for (size_t i = 0; i < nals.size(); ++i) {
    if (sendNalUnit(nals[i], timestamp, marker && i + 1 == nals.size())) anySent = true;
  }
  return anySent;
}

bool RtpSender::sendAccessUnit(const uint8_t* data, uint64_t size, uint32_t timestamp, bool marker, bool keyFrame) {
  std::vector<NalUnit> nals = scanAnnexB(data, size);
  if (nals.empty()) return false;
  if (marker && (keyFrame || nals.size() > 1)) {
    if (aggregateSize(nals) <= kRtpMaxPayloadBytes) return sendAggregate(nals, timestamp, true);
    // Too big for one packet: parameter sets go first, then the rest in buffer order.
    std::vector<NalUnit> parameterSets;
    std::vector<NalUnit> others;
    for (const NalUnit& nal : nals) (isParameterSet(nal) ? parameterSets : others).push_back(nal);
    bool anySent = sendParameterSets(parameterSets, timestamp);
    if (sendEachUnit(others, timestamp, true)) anySent = true;
    if (anySent) return true;
    // Nothing of the split went out: one more try, unit by unit in buffer order.
  }
  return sendEachUnit(nals, timestamp, marker);
}
