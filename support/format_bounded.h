// Bounded formatting: every message of the system is formatted through here.
#pragma once

#include <cstddef>

// Formats like vsnprintf: at most size - 1 characters, always terminated; returns the length the
// whole text would have had, or -1 on a formatting error.
int formatBounded(char* buffer, size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
