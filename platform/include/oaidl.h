// VARIANT: the tagged value of Automation, as ICodecAPI exchanges it.
#pragma once

#include "unknwn.h"
#include "windef.h"
#include "wtypes.h"

typedef short VARIANT_BOOL;
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

// The members a codec setting can carry; the layout is the SDK's, 24 bytes on x64.
typedef struct tagVARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONGLONG llVal;
    LONG lVal;
    BYTE bVal;
    short iVal;
    FLOAT fltVal;
    double dblVal;
    VARIANT_BOOL boolVal;
    IUnknown* punkVal;
    CHAR cVal;
    USHORT uiVal;
    ULONG ulVal;
    ULONGLONG ullVal;
    INT intVal;
    UINT uintVal;
    struct {
      void* pvRecord;
      void* pRecInfo;
    } recordFields;
  };
} VARIANT;
typedef VARIANT VARIANTARG;
