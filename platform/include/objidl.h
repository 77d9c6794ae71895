// IAgileObject: the mark of an object that any apartment may call directly. IMarshal: what the
// free-threaded marshaler answers for an object that aggregates it.
#pragma once

#include "guiddef.h"
#include "unknwn.h"
#include "windef.h"

struct IStream;

MIDL_INTERFACE("94ea2b94-e9cc-49e0-c0ff-ee64ca8f5b90")
IAgileObject : public IUnknown {};
__CRT_UUID_DECL(IAgileObject, 0x94ea2b94, 0xe9cc, 0x49e0, 0xc0, 0xff, 0xee, 0x64, 0xca, 0x8f, 0x5b, 0x90)

DEFINE_GUID(IID_IAgileObject, 0x94ea2b94, 0xe9cc, 0x49e0, 0xc0, 0xff, 0xee, 0x64, 0xca, 0x8f, 0x5b, 0x90);

MIDL_INTERFACE("00000003-0000-0000-C000-000000000046")
IMarshal : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID riid, void* pv, DWORD dwDestContext,
                                                      void* pvDestContext, DWORD mshlflags, CLSID* pCid) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID riid, void* pv, DWORD dwDestContext,
                                                      void* pvDestContext, DWORD mshlflags, DWORD* pSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE MarshalInterface(IStream* pStm, REFIID riid, void* pv, DWORD dwDestContext,
                                                     void* pvDestContext, DWORD mshlflags) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream* pStm, REFIID riid, void** ppv) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream* pStm) = 0;
  virtual HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD dwReserved) = 0;
};
__CRT_UUID_DECL(IMarshal, 0x00000003, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)

DEFINE_GUID(IID_IMarshal, 0x00000003, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
