// COM memory and apartment calls.
#pragma once

#include "objidl.h"
#include "windows.h"

#define COINIT_MULTITHREADED 0x0
#define COINIT_APARTMENTTHREADED 0x2

WINBASEAPI void WINAPI CoTaskMemFree(LPVOID pv);
WINBASEAPI LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb);
