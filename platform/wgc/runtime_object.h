// IInspectable for the platform's Windows Runtime objects: the class name comes back as a new
// HSTRING that the caller deletes, and every object is of base trust.
#pragma once

#include <cwchar>

#include "inspectable.h"
#include "winstring.h"

#define PLATFORM_IINSPECTABLE_METHODS(runtimeClassName)                                             \
  HRESULT STDMETHODCALLTYPE GetIids(ULONG* iidCount, IID** iids) override {                         \
    if (iidCount == nullptr || iids == nullptr) return E_POINTER;                                   \
    *iidCount = 0;                                                                                  \
    *iids = nullptr;                                                                                \
    return enter("IInspectable::GetIids");                                                          \
  }                                                                                                 \
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* className) override {                      \
    if (className == nullptr) return E_POINTER;                                                     \
    *className = nullptr;                                                                           \
    if (HRESULT hr = enter("IInspectable::GetRuntimeClassName"); hr != S_OK) return hr;             \
    return WindowsCreateString(runtimeClassName, UINT32(std::wcslen(runtimeClassName)), className); \
  }                                                                                                 \
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* trustLevel) override {                        \
    if (trustLevel == nullptr) return E_POINTER;                                                    \
    *trustLevel = BaseTrust;                                                                        \
    return enter("IInspectable::GetTrustLevel");                                                    \
  }
