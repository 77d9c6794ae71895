// The Win32 subset the system calls: time, debug output, modules, handles, last error.
#pragma once

#include "guiddef.h"
#include "unknwn.h"
#include "windef.h"
#include "winerror.h"

WINBASEAPI ULONGLONG WINAPI GetTickCount64(void);
WINBASEAPI DWORD WINAPI GetTickCount(void);
WINBASEAPI void WINAPI Sleep(DWORD dwMilliseconds);
WINBASEAPI BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER* lpPerformanceCount);
WINBASEAPI BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER* lpFrequency);
WINBASEAPI void WINAPI OutputDebugStringA(LPCSTR lpOutputString);
WINBASEAPI HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName);
WINBASEAPI FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
WINBASEAPI BOOL WINAPI FreeLibrary(HMODULE hLibModule);
WINBASEAPI BOOL WINAPI CloseHandle(HANDLE hObject);
WINBASEAPI DWORD WINAPI GetLastError(void);
// Non-zero while `hWnd` names a window that exists.
WINBASEAPI BOOL WINAPI IsWindow(HWND hWnd);
WINBASEAPI void WINAPI SetLastError(DWORD dwErrCode);
