// The WinRT string calls the system makes: class names in, display names out.
#pragma once

#include "hstring.h"
#include "windef.h"
#include "winerror.h"

WINBASEAPI HRESULT WINAPI WindowsCreateString(LPCWSTR sourceString, UINT32 length, HSTRING* string);
WINBASEAPI HRESULT WINAPI WindowsCreateStringReference(PCWSTR sourceString, UINT32 length,
                                                       HSTRING_HEADER* hstringHeader, HSTRING* string);
WINBASEAPI HRESULT WINAPI WindowsDeleteString(HSTRING string);
WINBASEAPI PCWSTR WINAPI WindowsGetStringRawBuffer(HSTRING string, UINT32* length);
