// HSTRING, the handle of an immutable WinRT string, and the header that a fast-pass
// string reference lives in.
#pragma once

#include "windef.h"

typedef struct HSTRING__ {
  int unused;
} HSTRING__;
typedef HSTRING__* HSTRING;

// The caller's storage for a string reference: its size is part of the ABI.
typedef struct HSTRING_HEADER {
  union {
    PVOID Reserved1;
    char Reserved2[24];
  } Reserved;
} HSTRING_HEADER;
