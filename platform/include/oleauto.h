// Automation's helpers for VARIANT values.
#pragma once

#include "oaidl.h"
#include "windows.h"

WINBASEAPI void WINAPI VariantInit(VARIANTARG* pvarg);
// Releases what the value holds and leaves it VT_EMPTY.
WINBASEAPI HRESULT WINAPI VariantClear(VARIANTARG* pvarg);
