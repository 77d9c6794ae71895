// The kernel side of Winsock: BSD UDP sockets behind types that clash with nothing in the
// SDK-named headers. Errors come back as Winsock error numbers.
#pragma once

#include <cstdint>

namespace platform::posix {

// A new IPv4 UDP socket's descriptor, or -1 with `error` set.
int openUdpSocket(int* error);
// Sends one datagram; the number of bytes sent, or -1 with `error` set.
int sendDatagram(int fd, const void* data, int length, uint32_t addressNetworkOrder, uint16_t portNetworkOrder,
                 int* error);
void closeSocket(int fd);
// Parses dotted IPv4 text into four bytes in network order.
bool parseIPv4(const char* text, uint8_t bytes[4]);

}  // namespace platform::posix
