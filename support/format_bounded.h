// Bounded formatting: every message of the system is formatted through here.
#pragma once

#include <cstddef>

// Formats like vsnprintf: at most size - 1 characters, always terminated; returns the length the
// whole text would have had, or -1 on a formatting error. The formats are the C99 ones (%zu
// included) on Windows too, where the C++ runtime brings MinGW's own standard printf.
int formatBounded(char* buffer, size_t size, const char* format, ...) __attribute__((format(gnu_printf, 3, 4)));
