#include <cstdlib>

#include "objbase.h"
#include "windows.h"

namespace {
thread_local DWORD lastError = 0;
}

DWORD WINAPI GetLastError(void) { return lastError; }

void WINAPI SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }

LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb) { return std::malloc(cb == 0 ? 1 : cb); }

void WINAPI CoTaskMemFree(LPVOID pv) { std::free(pv); }
