// Address text conversion.
#pragma once

#include "winsock2.h"

typedef const char* PCSTR;

WINSOCK_API_LINKAGE INT WSAAPI inet_pton(INT Family, PCSTR pszAddrString, PVOID pAddrBuf) WS2_LINK_NAME(inet_pton);
