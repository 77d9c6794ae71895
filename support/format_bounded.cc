#include "support/format_bounded.h"

#include <cstdarg>
#include <cstdio>

int formatBounded(char* buffer, size_t size, const char* format, ...) {
  if (format == nullptr) {
    if (buffer != nullptr && size > 0) buffer[0] = '\0';
    return -1;
  }
  va_list args;
  va_start(args, format);
  int length = std::vsnprintf(size > 0 ? buffer : nullptr, size, format, args);
  va_end(args);
  if (length < 0 && buffer != nullptr && size > 0) buffer[0] = '\0';
  return length;
}
