// VariantInit and VariantClear for the value types codec settings use.
#include <cstring>

#include "oleauto.h"
#include "platform/core/call_gate.h"
#include "winerror.h"

void WINAPI VariantInit(VARIANTARG* pvarg) {
  platform::plannedHresult("VariantInit");  // counted; there is no result to fail with
  if (pvarg != nullptr) pvarg->vt = VT_EMPTY;
}

HRESULT WINAPI VariantClear(VARIANTARG* pvarg) {
  if (HRESULT planned = platform::plannedHresult("VariantClear"); planned != S_OK) return planned;
  if (pvarg == nullptr) return E_INVALIDARG;
  switch (pvarg->vt) {
    case VT_EMPTY:
    case VT_BOOL:
    case VT_UI1:
    case VT_UI4:
    case VT_UI8:
    case VT_R8:
      break;
    case VT_UNKNOWN:
      if (pvarg->punkVal != nullptr) pvarg->punkVal->Release();
      break;
    default:
      return DISP_E_BADVARTYPE;
  }
  std::memset(pvarg, 0, sizeof(VARIANT));
  return S_OK;
}
