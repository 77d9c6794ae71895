// PropVariantClear for the value types the platform hands out in PROPVARIANTs.
#include <cstring>

#include "combaseapi.h"
#include "winerror.h"
#include "platform/core/call_gate.h"
#include "propidl.h"


HRESULT WINAPI PropVariantClear(PROPVARIANT* pvar) {
  if (HRESULT planned = platform::plannedHresult("PropVariantClear"); planned != S_OK) return planned;
  if (pvar == nullptr) return S_OK;
  switch (pvar->vt) {
    case VT_EMPTY:
    case VT_UI1:
    case VT_UI4:
    case VT_UI8:
    case VT_R8:
    case VT_BOOL:
      break;
    case VT_CLSID:
      CoTaskMemFree(pvar->puuid);
      break;
    case VT_LPWSTR:
      CoTaskMemFree(pvar->pwszVal);
      break;
    case VT_VECTOR | VT_UI1:
      CoTaskMemFree(pvar->caub.pElems);
      break;
    case VT_UNKNOWN:
      if (pvar->punkVal != nullptr) pvar->punkVal->Release();
      break;
    default:
      // A type this platform never makes: left as it is, as Windows leaves a bad type.
      return DISP_E_BADVARTYPE;
  }
  std::memset(pvar, 0, sizeof(PROPVARIANT));
  return S_OK;
}
