#include "rtp/rtp_sender.h"

#include <ws2tcpip.h>

#include <cstring>

#include "support/log.h"

RtpSender::~RtpSender() { close(); }

void RtpSender::close() {
  if (socket == INVALID_SOCKET) return;
  closesocket(socket);
  socket = INVALID_SOCKET;
  WSACleanup();
}

bool RtpSender::open(const std::string& ip, uint16_t port, uint32_t ssrc, uint8_t payloadType) {
  close();
  WSADATA data;
  std::memset(&data, 0, sizeof data);
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
    logError("WSAStartup failed");
    return false;
  }
  SOCKET opened = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (opened == INVALID_SOCKET) {
    logError("socket failed");
    WSACleanup();
    return false;
  }
  // The sequence number runs on across opens: a session's first packet has number 0.
  this->ip = ip;
  this->port = port;
  this->ssrc = ssrc;
  this->payloadType = payloadType;
  socket = opened;
  return true;
}

bool RtpSender::sendDatagram(const uint8_t* bytes, size_t length) {
  if (socket == INVALID_SOCKET) return false;
  // The address is built for every datagram; text that doesn't parse leaves 0.0.0.0.
  sockaddr_in target;
  std::memset(&target, 0, sizeof target);
  target.sin_family = AF_INET;
  target.sin_port = htons(port);
  inet_pton(AF_INET, ip.c_str(), &target.sin_addr);
  int sent = sendto(socket, reinterpret_cast<const char*>(bytes), int(length), 0,
                    reinterpret_cast<const sockaddr*>(&target), int(sizeof target));
  return sent == int(length);
}
