// The log: one line per call on the debugger output, and nowhere else.
#pragma once

constexpr unsigned kLogLineBytes = 512;

void logInfo(const char* text);
void logError(const char* text);
