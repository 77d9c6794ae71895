// The H.264 transform's ICodecAPI, which forces key frames, and its event generator, which the
// asynchronous kind raises its events through.
#include "codecapi.h"
#include "mferror.h"
#include "platform/mf/h264_transform.h"

namespace platform::mf {

HRESULT H264Transform::IsSupported(const GUID* Api) {
  if (HRESULT hr = enter("ICodecAPI::IsSupported"); hr != S_OK) return hr;
  if (Api == nullptr) return E_POINTER;
  return *Api == CODECAPI_AVEncVideoForceKeyFrame ? S_OK : E_NOTIMPL;
}

HRESULT H264Transform::IsModifiable(const GUID* Api) {
  if (HRESULT hr = enter("ICodecAPI::IsModifiable"); hr != S_OK) return hr;
  if (Api == nullptr) return E_POINTER;
  return *Api == CODECAPI_AVEncVideoForceKeyFrame ? S_OK : E_NOTIMPL;
}

HRESULT H264Transform::GetParameterRange(const GUID*, VARIANT*, VARIANT*, VARIANT*) {
  if (HRESULT hr = enter("ICodecAPI::GetParameterRange"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetParameterValues(const GUID*, VARIANT**, ULONG*) {
  if (HRESULT hr = enter("ICodecAPI::GetParameterValues"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetDefaultValue(const GUID*, VARIANT*) {
  if (HRESULT hr = enter("ICodecAPI::GetDefaultValue"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetValue(const GUID* Api, VARIANT* Value) {
  if (HRESULT hr = enter("ICodecAPI::GetValue"); hr != S_OK) return hr;
  if (Api == nullptr || Value == nullptr) return E_POINTER;
  if (*Api != CODECAPI_AVEncVideoForceKeyFrame) return E_NOTIMPL;
  std::lock_guard<std::mutex> lock(mutex);
  Value->vt = VT_UI4;
  Value->ulVal = keyFramePending ? 1 : 0;
  return S_OK;
}

// The documented type is VT_UI4; encoders also take VT_BOOL, and so does this one.
HRESULT H264Transform::SetValue(const GUID* Api, VARIANT* Value) {
  if (HRESULT hr = enter("ICodecAPI::SetValue"); hr != S_OK) return hr;
  if (Api == nullptr || Value == nullptr) return E_POINTER;
  if (*Api != CODECAPI_AVEncVideoForceKeyFrame) return E_NOTIMPL;
  bool force = false;
  if (Value->vt == VT_UI4)
    force = Value->ulVal != 0;
  else if (Value->vt == VT_BOOL)
    force = Value->boolVal != VARIANT_FALSE;
  else
    return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(mutex);
  if (force) keyFramePending = true;
  return S_OK;
}

HRESULT H264Transform::RegisterForEvent(const GUID*, LONG_PTR) {
  if (HRESULT hr = enter("ICodecAPI::RegisterForEvent"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::UnregisterForEvent(const GUID*) {
  if (HRESULT hr = enter("ICodecAPI::UnregisterForEvent"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::SetAllDefaults() {
  if (HRESULT hr = enter("ICodecAPI::SetAllDefaults"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::SetValueWithNotify(const GUID*, VARIANT*, GUID**, ULONG*) {
  if (HRESULT hr = enter("ICodecAPI::SetValueWithNotify"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::SetAllDefaultsWithNotify(GUID**, ULONG*) {
  if (HRESULT hr = enter("ICodecAPI::SetAllDefaultsWithNotify"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetAllSettings(IStream*) {
  if (HRESULT hr = enter("ICodecAPI::GetAllSettings"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::SetAllSettings(IStream*) {
  if (HRESULT hr = enter("ICodecAPI::SetAllSettings"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::SetAllSettingsWithNotify(IStream*, GUID**, ULONG*) {
  if (HRESULT hr = enter("ICodecAPI::SetAllSettingsWithNotify"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetEvent(DWORD dwFlags, IMFMediaEvent** ppEvent) {
  if (HRESULT hr = enter("IMFMediaEventGenerator::GetEvent"); hr != S_OK) return hr;
  if (ppEvent == nullptr) return E_POINTER;
  *ppEvent = nullptr;
  return events.get(dwFlags, ppEvent);
}

// Events are polled here; a client that wants callbacks finds them missing.
HRESULT H264Transform::BeginGetEvent(IMFAsyncCallback*, IUnknown*) {
  if (HRESULT hr = enter("IMFMediaEventGenerator::BeginGetEvent"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

HRESULT H264Transform::EndGetEvent(IMFAsyncResult*, IMFMediaEvent** ppEvent) {
  if (HRESULT hr = enter("IMFMediaEventGenerator::EndGetEvent"); hr != S_OK) return hr;
  if (ppEvent != nullptr) *ppEvent = nullptr;
  return E_NOTIMPL;
}

HRESULT H264Transform::QueueEvent(MediaEventType met, REFGUID guidExtendedType, HRESULT hrStatus,
                                  const PROPVARIANT* pvValue) {
  if (HRESULT hr = enter("IMFMediaEventGenerator::QueueEvent"); hr != S_OK) return hr;
  IMFMediaEvent* event = newMediaEvent(met, guidExtendedType, hrStatus, pvValue);
  HRESULT hr = events.queueEvent(event);
  if (FAILED(hr)) event->Release();
  return hr;
}

}  // namespace platform::mf
