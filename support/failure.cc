#include "support/failure.h"

#include "support/format_bounded.h"
#include "support/log.h"

thread_local std::string threadLastFailure;

void recordFailure(const char* text) {
  threadLastFailure = text != nullptr ? text : "";
  logError(text);
}

void recordHresultFailure(const char* text, HRESULT hr) {
  char message[kLogLineBytes];
  formatBounded(message, sizeof message, "%s (hr=0x%08lx)", text != nullptr ? text : "",
                static_cast<unsigned long>(static_cast<uint32_t>(hr)));
  recordFailure(message);
}
