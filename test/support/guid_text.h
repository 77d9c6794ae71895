// A GUID as its registry form reads, in lower case: what documentation and tests compare.
#pragma once

#include <guiddef.h>

#include <cstdio>
#include <string>

inline std::string guidText(const GUID& id) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", unsigned(id.Data1),
                unsigned(id.Data2), unsigned(id.Data3), id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3],
                id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
  return buffer;
}
