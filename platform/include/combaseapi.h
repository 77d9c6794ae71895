// COM's base calls: apartments, class creation, the free-threaded marshaler, task memory.
#pragma once

#include "objidl.h"
#include "unknwn.h"
#include "windows.h"
#include "wtypesbase.h"

#define CLSCTX_INPROC (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)
#define CLSCTX_SERVER (CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)
#define CLSCTX_ALL (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

typedef IUnknown* LPUNKNOWN;

WINBASEAPI HRESULT WINAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
WINBASEAPI void WINAPI CoUninitialize(void);
WINBASEAPI HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid,
                                           LPVOID* ppv);
WINBASEAPI HRESULT WINAPI CoCreateFreeThreadedMarshaler(LPUNKNOWN punkOuter, LPUNKNOWN* ppunkMarshal);

WINBASEAPI void WINAPI CoTaskMemFree(LPVOID pv);
WINBASEAPI LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb);
