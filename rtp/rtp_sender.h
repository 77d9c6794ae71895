// The session's one UDP socket and its RTP state: H.264 access units leave as RTP packets
// (single NAL unit, STAP-A, FU-A), one datagram each, to one IPv4 receiver. Send-only.
#pragma once

#include <winsock2.h>

#include <cstdint>
#include <string>
#include <vector>

#include "rtp/annexb.h"

constexpr size_t kRtpHeaderBytes = 12;
constexpr size_t kRtpMaxPayloadBytes = 1180;
constexpr size_t kRtpMaxDatagramBytes = kRtpHeaderBytes + kRtpMaxPayloadBytes;
constexpr size_t kFuAMaxFragmentBytes = kRtpMaxPayloadBytes - 2;

class RtpSender {
 public:
  RtpSender() = default;
  ~RtpSender();
  RtpSender(const RtpSender&) = delete;
  RtpSender& operator=(const RtpSender&) = delete;

  bool open(const std::string& ip, uint16_t port, uint32_t ssrc, uint8_t payloadType);
  // True only if the platform took the whole datagram.
  bool sendDatagram(const uint8_t* bytes, size_t length);

  // Each returns true if at least one datagram of the call left.
  bool sendAccessUnit(const uint8_t* data, uint64_t size, uint32_t timestamp, bool marker, bool keyFrame);
  bool sendNalUnit(const NalUnit& nal, uint32_t timestamp, bool marker);
  bool sendAggregate(const std::vector<NalUnit>& nals, uint32_t timestamp, bool marker);

  SOCKET socket = INVALID_SOCKET;
  uint32_t ssrc = 0;
  uint16_t sequence = 0;
  uint8_t payloadType = 96;
  uint16_t port = 0;
  std::string ip;

 private:
  void close();
  // Starts a packet of `payloadBytes` behind the header; takes the next sequence number.
  std::vector<uint8_t> beginPacket(size_t payloadBytes, uint32_t timestamp, bool marker);
  bool sendParameterSets(const std::vector<NalUnit>& parameterSets, uint32_t timestamp);
  bool sendEachUnit(const std::vector<NalUnit>& nals, uint32_t timestamp, bool marker);
};
