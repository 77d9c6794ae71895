// Variant type tags and the counted byte array that property values carry.
#pragma once

#include "windef.h"
#include "wtypesbase.h"

typedef unsigned short VARTYPE;

// The tags Media Foundation's attribute values use.
enum VARENUM {
  VT_EMPTY = 0,
  VT_R8 = 5,
  VT_BOOL = 11,
  VT_UNKNOWN = 13,
  VT_UI1 = 17,
  VT_UI4 = 19,
  VT_UI8 = 21,
  VT_LPWSTR = 31,
  VT_CLSID = 72,
  VT_VECTOR = 0x1000
};

typedef struct tagBLOB {
  ULONG cbSize;
  BYTE* pBlobData;
} BLOB;
