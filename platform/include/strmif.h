// ICodecAPI: a codec's settings by GUID, with VARIANT values. The rest of the streaming
// interfaces of this header aren't used and aren't declared.
#pragma once

#include "oaidl.h"
#include "unknwn.h"
#include "windef.h"

struct IStream;

MIDL_INTERFACE("901db4c7-31ce-41a2-85dc-8fa0bf41b8da")
ICodecAPI : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE IsSupported(const GUID* Api) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsModifiable(const GUID* Api) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParameterRange(const GUID* Api, VARIANT* ValueMin, VARIANT* ValueMax,
                                                      VARIANT* SteppingDelta) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParameterValues(const GUID* Api, VARIANT** Values, ULONG* ValuesCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDefaultValue(const GUID* Api, VARIANT* Value) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetValue(const GUID* Api, VARIANT* Value) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetValue(const GUID* Api, VARIANT* Value) = 0;
  virtual HRESULT STDMETHODCALLTYPE RegisterForEvent(const GUID* Api, LONG_PTR userData) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnregisterForEvent(const GUID* Api) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAllDefaults() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetValueWithNotify(const GUID* Api, VARIANT* Value, GUID** ChangedParam,
                                                       ULONG* ChangedParamCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAllDefaultsWithNotify(GUID** ChangedParam, ULONG* ChangedParamCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAllSettings(IStream* __MIDL__ICodecAPI0000) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAllSettings(IStream* __MIDL__ICodecAPI0001) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAllSettingsWithNotify(IStream* __MIDL__ICodecAPI0002, GUID** ChangedParam,
                                                             ULONG* ChangedParamCount) = 0;
};
__CRT_UUID_DECL(ICodecAPI, 0x901db4c7, 0x31ce, 0x41a2, 0x85, 0xdc, 0x8f, 0xa0, 0xbf, 0x41, 0xb8, 0xda)
DEFINE_GUID(IID_ICodecAPI, 0x901db4c7, 0x31ce, 0x41a2, 0x85, 0xdc, 0x8f, 0xa0, 0xbf, 0x41, 0xb8, 0xda);
