// PROPVARIANT: the tagged value that IMFAttributes::GetItem and SetItem exchange.
#pragma once

#include <string.h>

#include "guiddef.h"
#include "unknwn.h"
#include "windef.h"
#include "wtypes.h"

typedef struct tagCAUB {
  ULONG cElems;
  UCHAR* pElems;
} CAUB;

typedef struct tagPROPVARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    CHAR cVal;
    UCHAR bVal;
    short iVal;
    USHORT uiVal;
    LONG lVal;
    ULONG ulVal;
    INT intVal;
    UINT uintVal;
    LARGE_INTEGER hVal;
    ULARGE_INTEGER uhVal;
    FLOAT fltVal;
    double dblVal;
    CLSID* puuid;
    BLOB blob;
    LPSTR pszVal;
    LPWSTR pwszVal;
    IUnknown* punkVal;
    CAUB caub;
  };
} PROPVARIANT;

#define REFPROPVARIANT const PROPVARIANT&

#define PropVariantInit(pvar) memset((pvar), 0, sizeof(PROPVARIANT))

// Frees what the value owns (task memory of strings, blobs and GUIDs; a reference) and empties it.
WINBASEAPI HRESULT WINAPI PropVariantClear(PROPVARIANT* pvar);
