#include <cstdlib>

#include "objbase.h"
#include "platform/core/call_gate.h"
#include "windows.h"

namespace {
thread_local DWORD lastError = 0;
}

DWORD WINAPI GetLastError(void) { return lastError; }

void WINAPI SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }

LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb) {
  int64_t value = 0;
  if (platform::plannedFault("CoTaskMemAlloc", &value)) return reinterpret_cast<LPVOID>(value);
  return std::malloc(cb == 0 ? 1 : cb);
}

void WINAPI CoTaskMemFree(LPVOID pv) {
  platform::plannedHresult("CoTaskMemFree");  // counted, so that tests can match frees to allocations
  std::free(pv);
}
