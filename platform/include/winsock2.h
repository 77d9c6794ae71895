// Winsock 2: the UDP subset. The functions carry their own link names so that they never
// take the place of the C library's socket functions in the host process.
#pragma once

#include "windows.h"

#define WSAAPI
#define WINSOCK_API_LINKAGE extern "C" __attribute__((visibility("default")))
#define WS2_LINK_NAME(name) __asm__("kestrane_ws2_" #name)

// u_long is left out: the C library's u_long is 64 bits wide here, Winsock's 32. ULONG serves.
typedef unsigned short u_short;
typedef unsigned char u_char;
typedef UINT_PTR SOCKET;
typedef unsigned short ADDRESS_FAMILY;

#define INVALID_SOCKET ((SOCKET)(~0))
#define SOCKET_ERROR (-1)

#define AF_UNSPEC 0
#define AF_INET 2
#define SOCK_STREAM 1
#define SOCK_DGRAM 2
#define IPPROTO_TCP 6
#define IPPROTO_UDP 17
#define INADDR_ANY ((ULONG)0x00000000)
#define INADDR_LOOPBACK 0x7f000001

#define WSADESCRIPTION_LEN 256
#define WSASYS_STATUS_LEN 128

#define WSAEINTR 10004L
#define WSAEBADF 10009L
#define WSAEACCES 10013L
#define WSAEFAULT 10014L
#define WSAEINVAL 10022L
#define WSAEMFILE 10024L
#define WSAEWOULDBLOCK 10035L
#define WSAENOTSOCK 10038L
#define WSAEDESTADDRREQ 10039L
#define WSAEMSGSIZE 10040L
#define WSAEPROTONOSUPPORT 10043L
#define WSAESOCKTNOSUPPORT 10044L
#define WSAEAFNOSUPPORT 10047L
#define WSAEADDRNOTAVAIL 10049L
#define WSAENETUNREACH 10051L
#define WSAENOBUFS 10055L
#define WSAEHOSTUNREACH 10065L
#define WSAECONNREFUSED 10061L
#define WSASYSNOTREADY 10091L
#define WSAVERNOTSUPPORTED 10092L
#define WSANOTINITIALISED 10093L

#ifndef MAKEWORD
#define MAKEWORD(low, high) ((WORD)(((BYTE)(low)) | ((WORD)((BYTE)(high))) << 8))
#endif

typedef struct WSAData {
  WORD wVersion;
  WORD wHighVersion;
  unsigned short iMaxSockets;
  unsigned short iMaxUdpDg;
  char* lpVendorInfo;
  char szDescription[WSADESCRIPTION_LEN + 1];
  char szSystemStatus[WSASYS_STATUS_LEN + 1];
} WSADATA, *LPWSADATA;

typedef struct in_addr {
  union {
    struct {
      UCHAR s_b1, s_b2, s_b3, s_b4;
    } S_un_b;
    struct {
      USHORT s_w1, s_w2;
    } S_un_w;
    ULONG S_addr;
  } S_un;
} IN_ADDR;
#define s_addr S_un.S_addr

typedef struct sockaddr {
  ADDRESS_FAMILY sa_family;
  CHAR sa_data[14];
} SOCKADDR;

typedef struct sockaddr_in {
  ADDRESS_FAMILY sin_family;
  USHORT sin_port;
  IN_ADDR sin_addr;
  CHAR sin_zero[8];
} SOCKADDR_IN;

WINSOCK_API_LINKAGE int WSAAPI WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData) WS2_LINK_NAME(WSAStartup);
WINSOCK_API_LINKAGE int WSAAPI WSACleanup(void) WS2_LINK_NAME(WSACleanup);
WINSOCK_API_LINKAGE int WSAAPI WSAGetLastError(void) WS2_LINK_NAME(WSAGetLastError);
WINSOCK_API_LINKAGE SOCKET WSAAPI socket(int af, int type, int protocol) WS2_LINK_NAME(socket);
WINSOCK_API_LINKAGE int WSAAPI sendto(SOCKET s, const char* buf, int len, int flags, const struct sockaddr* to,
                                      int tolen) WS2_LINK_NAME(sendto);
WINSOCK_API_LINKAGE int WSAAPI closesocket(SOCKET s) WS2_LINK_NAME(closesocket);
WINSOCK_API_LINKAGE u_short WSAAPI htons(u_short hostshort) WS2_LINK_NAME(htons);
WINSOCK_API_LINKAGE ULONG WSAAPI htonl(ULONG hostlong) WS2_LINK_NAME(htonl);
WINSOCK_API_LINKAGE u_short WSAAPI ntohs(u_short netshort) WS2_LINK_NAME(ntohs);
WINSOCK_API_LINKAGE ULONG WSAAPI ntohl(ULONG netlong) WS2_LINK_NAME(ntohl);
