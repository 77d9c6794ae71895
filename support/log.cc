#include "support/log.h"

#include <windows.h>

#include "support/format_bounded.h"

namespace {

// A text too long for the line loses its tail, the newline included.
void writeLine(const char* format, const char* text) {
  char line[kLogLineBytes];
  formatBounded(line, sizeof line, format, text != nullptr ? text : "");
  OutputDebugStringA(line);
}

}  // namespace

void logInfo(const char* text) { writeLine("[kestrane-win] %s\n", text); }

void logError(const char* text) { writeLine("[kestrane-win][error] %s\n", text); }
