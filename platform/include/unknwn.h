// IUnknown: reference counting and interface queries for every COM object.
#pragma once

#include "guiddef.h"
#include "windef.h"

#ifndef STDMETHODCALLTYPE
#define STDMETHODCALLTYPE
#endif
#ifndef MIDL_INTERFACE
#define MIDL_INTERFACE(id) struct
#endif

MIDL_INTERFACE("00000000-0000-0000-C000-000000000046")
IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

  template <class Q>
  HRESULT STDMETHODCALLTYPE QueryInterface(Q** pp) {
    return QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
  }

 protected:
  ~IUnknown() = default;
};
__CRT_UUID_DECL(IUnknown, 0x00000000, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)

DEFINE_GUID(IID_IUnknown, 0x00000000, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

template <typename T>
void** IID_PPV_ARGS_Helper(T** pp) {
  return reinterpret_cast<void**>(pp);
}
#define IID_PPV_ARGS(ppType) __uuidof(**(ppType)), IID_PPV_ARGS_Helper(ppType)
