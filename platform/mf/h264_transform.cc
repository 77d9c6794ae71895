// The H.264 transform's setup face: streams, media types, messages, ICodecAPI and events.
#include "platform/mf/h264_transform.h"

#include "codecapi.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/control/machine_control.h"
#include "platform/d3d11/device.h"
#include "platform/mf/attribute_store.h"
#include "platform/mf/objects.h"

namespace platform::mf {
namespace {

// Every method of the transform is gated under "IMFTransform::<method>".
#define GATE(method)                                                   \
  if (HRESULT gated = enter("IMFTransform::" method); gated != S_OK) \
  return gated

bool readUint32(AttributeStore* store, REFGUID key, UINT32* value) {
  AttributeValue found;
  if (store == nullptr || FAILED(store->get(key, MF_ATTRIBUTE_UINT32, &found))) return false;
  *value = UINT32(found.number);
  return true;
}

bool readUint64(AttributeStore* store, REFGUID key, UINT64* value) {
  AttributeValue found;
  if (store == nullptr || FAILED(store->get(key, MF_ATTRIBUTE_UINT64, &found))) return false;
  *value = found.number;
  return true;
}

bool readGuid(AttributeStore* store, REFGUID key, GUID* value) {
  AttributeValue found;
  if (store == nullptr || FAILED(store->get(key, MF_ATTRIBUTE_GUID, &found))) return false;
  *value = found.guid;
  return true;
}

void setUint32(IMFMediaType* type, REFGUID key, UINT32 value) {
  AttributeValue item;
  item.type = MF_ATTRIBUTE_UINT32;
  item.number = value;
  storeOf(type)->set(key, item);
}

void setUint64(IMFMediaType* type, REFGUID key, UINT64 value) {
  AttributeValue item;
  item.type = MF_ATTRIBUTE_UINT64;
  item.number = value;
  storeOf(type)->set(key, item);
}

void setGuid(IMFMediaType* type, REFGUID key, REFGUID value) {
  AttributeValue item;
  item.type = MF_ATTRIBUTE_GUID;
  item.guid = value;
  storeOf(type)->set(key, item);
}

// A copy of the application's type, so that later changes to it don't reach the transform.
IMFMediaType* copyOf(IMFMediaType* type) {
  IMFMediaType* copy = newMediaType();
  AttributeStore* source = storeOf(type);
  if (source != nullptr)
    for (AttributeItem& item : source->items()) storeOf(copy)->set(item.key, item.value);
  return copy;
}

void replace(IMFMediaType*& slot, IMFMediaType* next) {
  IMFMediaType* old = slot;
  slot = next;
  if (old != nullptr) old->Release();
}

HRESULT handOutCopy(IMFMediaType* type, IMFMediaType** out) {
  if (type == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  *out = copyOf(type);
  return S_OK;
}

}  // namespace

H264Transform::H264Transform(TransformKind kind, UINT pinnedAdapter)
    : ComObject("IMFTransform"),
      kind(kind),
      pinnedAdapter(pinnedAdapter),
      slicelessAfter(control::currentMachine().mfSlicelessAfter),
      attributes(newAttributes()) {
  if (async()) {
    AttributeValue one;
    one.type = MF_ATTRIBUTE_UINT32;
    one.number = 1;
    storeOf(attributes)->set(MF_TRANSFORM_ASYNC, one);
    storeOf(attributes)->set(MF_SA_D3D11_AWARE, one);
  }
}

void* H264Transform::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IMFTransform) return static_cast<IMFTransform*>(this);
  if (riid == IID_ICodecAPI) return static_cast<ICodecAPI*>(this);
  if (riid == IID_IMFMediaEventGenerator && async()) return static_cast<IMFMediaEventGenerator*>(this);
  return nullptr;
}

void H264Transform::releaseResources() {
  stopWorker();
  events.shutdown();
  std::lock_guard<std::mutex> lock(mutex);
  replace(outputType, nullptr);
  replace(inputType, nullptr);
  if (manager != nullptr) manager->Release();
  if (managerDevice != nullptr) managerDevice->Release();
  manager = nullptr;
  managerDevice = nullptr;
  codec.reset();
  outputs.clear();
  attributes->Release();
}

HRESULT H264Transform::lockedAnswer() const {
  if (!async()) return S_OK;
  UINT32 unlocked = 0;
  return readUint32(storeOf(attributes), MF_TRANSFORM_ASYNC_UNLOCK, &unlocked) && unlocked != 0
             ? S_OK
             : MF_E_TRANSFORM_ASYNC_LOCKED;
}

HRESULT H264Transform::GetStreamLimits(DWORD* pdwInputMinimum, DWORD* pdwInputMaximum, DWORD* pdwOutputMinimum,
                                       DWORD* pdwOutputMaximum) {
  GATE("GetStreamLimits");
  if (!pdwInputMinimum || !pdwInputMaximum || !pdwOutputMinimum || !pdwOutputMaximum) return E_POINTER;
  *pdwInputMinimum = *pdwInputMaximum = *pdwOutputMinimum = *pdwOutputMaximum = 1;
  return S_OK;
}

HRESULT H264Transform::GetStreamCount(DWORD* pcInputStreams, DWORD* pcOutputStreams) {
  GATE("GetStreamCount");
  if (pcInputStreams == nullptr || pcOutputStreams == nullptr) return E_POINTER;
  *pcInputStreams = *pcOutputStreams = 1;
  return S_OK;
}

// Fixed streams numbered from 0: the documented answer is E_NOTIMPL.
HRESULT H264Transform::GetStreamIDs(DWORD, DWORD*, DWORD, DWORD*) {
  GATE("GetStreamIDs");
  return E_NOTIMPL;
}

HRESULT H264Transform::GetInputStreamInfo(DWORD dwInputStreamID, MFT_INPUT_STREAM_INFO* pStreamInfo) {
  GATE("GetInputStreamInfo");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (pStreamInfo == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  *pStreamInfo = {};
  pStreamInfo->dwFlags = MFT_INPUT_STREAM_WHOLE_SAMPLES | MFT_INPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER |
                         MFT_INPUT_STREAM_FIXED_SAMPLE_SIZE;
  pStreamInfo->cbSize = inputType != nullptr ? format.width * format.height * 3 / 2 : 0;
  return S_OK;
}

HRESULT H264Transform::GetOutputStreamInfo(DWORD dwOutputStreamID, MFT_OUTPUT_STREAM_INFO* pStreamInfo) {
  GATE("GetOutputStreamInfo");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwOutputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (pStreamInfo == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  *pStreamInfo = {};
  pStreamInfo->dwFlags = MFT_OUTPUT_STREAM_WHOLE_SAMPLES | MFT_OUTPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER;
  switch (kind) {
    case TransformKind::SoftwareClass:
      // An uncompressed picture's size, with room for the parameter sets of tiny pictures.
      if (outputType != nullptr) pStreamInfo->cbSize = format.width * format.height * 3 / 2 + 4096;
      break;
    case TransformKind::SoftwareEnumerated:
      break;  // no figure: the caller picks a size
    case TransformKind::Hardware:
      pStreamInfo->dwFlags |= MFT_OUTPUT_STREAM_PROVIDES_SAMPLES;
      break;
  }
  return S_OK;
}

HRESULT H264Transform::GetAttributes(IMFAttributes** pAttributes) {
  GATE("GetAttributes");
  if (pAttributes == nullptr) return E_POINTER;
  attributes->AddRef();
  *pAttributes = attributes;
  return S_OK;
}

HRESULT H264Transform::GetInputStreamAttributes(DWORD, IMFAttributes** pAttributes) {
  GATE("GetInputStreamAttributes");
  if (pAttributes != nullptr) *pAttributes = nullptr;
  return E_NOTIMPL;
}

HRESULT H264Transform::GetOutputStreamAttributes(DWORD, IMFAttributes** pAttributes) {
  GATE("GetOutputStreamAttributes");
  if (pAttributes != nullptr) *pAttributes = nullptr;
  return E_NOTIMPL;
}

HRESULT H264Transform::DeleteInputStream(DWORD) {
  GATE("DeleteInputStream");
  return E_NOTIMPL;
}

HRESULT H264Transform::AddInputStreams(DWORD, DWORD*) {
  GATE("AddInputStreams");
  return E_NOTIMPL;
}

// Output types are offered from the settings known so far, so that a type taken as offered
// after a stream change keeps the stream as it was.
IMFMediaType* H264Transform::makeOutputType() const {
  IMFMediaType* type = newMediaType();
  setGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video);
  setGuid(type, MF_MT_SUBTYPE, MFVideoFormat_H264);
  setUint32(type, MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
  if (format.width != 0) {
    setUint64(type, MF_MT_FRAME_SIZE, Pack2UINT32AsUINT64(format.width, format.height));
    setUint64(type, MF_MT_FRAME_RATE, Pack2UINT32AsUINT64(format.rateNumerator, format.rateDenominator));
    setUint32(type, MF_MT_AVG_BITRATE, format.bitrate);
    if (format.keyFrameSpacing != 0) setUint32(type, MF_MT_MAX_KEYFRAME_SPACING, format.keyFrameSpacing);
  }
  return type;
}

IMFMediaType* H264Transform::makeInputType(REFGUID subtype) const {
  IMFMediaType* type = newMediaType();
  setGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video);
  setGuid(type, MF_MT_SUBTYPE, subtype);
  setUint32(type, MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
  setUint64(type, MF_MT_FRAME_SIZE, Pack2UINT32AsUINT64(format.width, format.height));
  setUint64(type, MF_MT_FRAME_RATE, Pack2UINT32AsUINT64(format.rateNumerator, format.rateDenominator));
  return type;
}

// The software encoder offers planar and packed formats before NV12, as the one that ships
// with Windows does; the hardware one offers NV12 first. The codec core reads NV12 only, so the
// others are refused when set: a client must look for NV12.
const std::vector<GUID>& H264Transform::inputSubtypes() const {
  static const std::vector<GUID> software = {MFVideoFormat_IYUV, MFVideoFormat_YUY2, MFVideoFormat_NV12};
  static const std::vector<GUID> hardware = {MFVideoFormat_NV12, MFVideoFormat_YUY2};
  return async() ? hardware : software;
}

HRESULT H264Transform::GetOutputAvailableType(DWORD dwOutputStreamID, DWORD dwTypeIndex, IMFMediaType** ppType) {
  GATE("GetOutputAvailableType");
  if (ppType != nullptr) *ppType = nullptr;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwOutputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (ppType == nullptr) return E_POINTER;
  if (dwTypeIndex > 0) return MF_E_NO_MORE_TYPES;
  std::lock_guard<std::mutex> lock(mutex);
  *ppType = makeOutputType();
  return S_OK;
}

HRESULT H264Transform::GetInputAvailableType(DWORD dwInputStreamID, DWORD dwTypeIndex, IMFMediaType** ppType) {
  GATE("GetInputAvailableType");
  if (ppType != nullptr) *ppType = nullptr;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (ppType == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  if (outputType == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (dwTypeIndex >= inputSubtypes().size()) return MF_E_NO_MORE_TYPES;
  *ppType = makeInputType(inputSubtypes()[dwTypeIndex]);
  return S_OK;
}

HRESULT H264Transform::checkOutputType(IMFMediaType* type, StreamFormat* result) const {
  AttributeStore* store = storeOf(type);
  GUID major{}, subtype{};
  if (!readGuid(store, MF_MT_MAJOR_TYPE, &major) || major != MFMediaType_Video) return MF_E_INVALIDMEDIATYPE;
  if (!readGuid(store, MF_MT_SUBTYPE, &subtype) || subtype != MFVideoFormat_H264) return MF_E_INVALIDMEDIATYPE;
  UINT64 size = 0, rate = 0;
  if (!readUint64(store, MF_MT_FRAME_SIZE, &size) || !readUint64(store, MF_MT_FRAME_RATE, &rate))
    return MF_E_INVALIDMEDIATYPE;
  StreamFormat next;
  Unpack2UINT32AsUINT64(size, &next.width, &next.height);
  Unpack2UINT32AsUINT64(rate, &next.rateNumerator, &next.rateDenominator);
  // The codec core takes even sizes up to 4096 pixels a side.
  if (next.width == 0 || next.height == 0 || next.width % 2 != 0 || next.height % 2 != 0 || next.width > 4096 ||
      next.height > 4096)
    return MF_E_INVALIDMEDIATYPE;
  if (next.rateNumerator == 0 || next.rateDenominator == 0) return MF_E_INVALIDMEDIATYPE;
  UINT32 interlace = MFVideoInterlace_Progressive, profile = eAVEncH264VProfile_Base;
  readUint32(store, MF_MT_INTERLACE_MODE, &interlace);
  readUint32(store, MF_MT_MPEG2_PROFILE, &profile);
  if (interlace != MFVideoInterlace_Progressive) return MF_E_INVALIDMEDIATYPE;
  if (profile != eAVEncH264VProfile_Base) return MF_E_INVALIDMEDIATYPE;  // Baseline is all it writes
  next.bitrate = 4000000;
  readUint32(store, MF_MT_AVG_BITRATE, &next.bitrate);
  if (next.bitrate == 0) return MF_E_INVALIDMEDIATYPE;
  readUint32(store, MF_MT_MAX_KEYFRAME_SPACING, &next.keyFrameSpacing);
  *result = next;
  return S_OK;
}

HRESULT H264Transform::checkInputType(IMFMediaType* type) const {
  AttributeStore* store = storeOf(type);
  GUID major{}, subtype{};
  if (!readGuid(store, MF_MT_MAJOR_TYPE, &major) || major != MFMediaType_Video) return MF_E_INVALIDMEDIATYPE;
  if (!readGuid(store, MF_MT_SUBTYPE, &subtype) || subtype != MFVideoFormat_NV12) return MF_E_INVALIDMEDIATYPE;
  UINT64 size = 0, rate = 0;
  if (!readUint64(store, MF_MT_FRAME_SIZE, &size) || size != Pack2UINT32AsUINT64(format.width, format.height))
    return MF_E_INVALIDMEDIATYPE;
  if (readUint64(store, MF_MT_FRAME_RATE, &rate) &&
      rate != Pack2UINT32AsUINT64(format.rateNumerator, format.rateDenominator))
    return MF_E_INVALIDMEDIATYPE;
  UINT32 interlace = MFVideoInterlace_Progressive;
  readUint32(store, MF_MT_INTERLACE_MODE, &interlace);
  return interlace == MFVideoInterlace_Progressive ? S_OK : MF_E_INVALIDMEDIATYPE;
}

HRESULT H264Transform::SetOutputType(DWORD dwOutputStreamID, IMFMediaType* pType, DWORD dwFlags) {
  GATE("SetOutputType");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwOutputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if ((dwFlags & ~DWORD(MFT_SET_TYPE_TEST_ONLY)) != 0) return E_INVALIDARG;
  bool testOnly = (dwFlags & MFT_SET_TYPE_TEST_ONLY) != 0;
  std::lock_guard<std::mutex> lock(mutex);
  if (pType == nullptr) {
    if (testOnly) return S_OK;
    replace(outputType, nullptr);
    replace(inputType, nullptr);
    codec.reset();
    return S_OK;
  }
  StreamFormat next;
  if (HRESULT hr = checkOutputType(pType, &next); FAILED(hr)) return hr;
  if (testOnly) return S_OK;
  bool sameStream = next.width == format.width && next.height == format.height &&
                    next.rateNumerator == format.rateNumerator && next.rateDenominator == format.rateDenominator;
  // An input type for another picture size no longer fits.
  if (!sameStream) replace(inputType, nullptr);
  if (!sameStream || next.bitrate != format.bitrate || next.keyFrameSpacing != format.keyFrameSpacing) codec.reset();
  format = next;
  replace(outputType, copyOf(pType));
  if (announceAfterTypeSet && !outputs.empty()) {
    announceAfterTypeSet = false;
    events.queue(METransformHaveOutput);
  }
  return S_OK;
}

HRESULT H264Transform::SetInputType(DWORD dwInputStreamID, IMFMediaType* pType, DWORD dwFlags) {
  GATE("SetInputType");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if ((dwFlags & ~DWORD(MFT_SET_TYPE_TEST_ONLY)) != 0) return E_INVALIDARG;
  bool testOnly = (dwFlags & MFT_SET_TYPE_TEST_ONLY) != 0;
  std::lock_guard<std::mutex> lock(mutex);
  if (outputType == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (pType == nullptr) {
    if (!testOnly) replace(inputType, nullptr);
    return S_OK;
  }
  if (HRESULT hr = checkInputType(pType); FAILED(hr)) return hr;
  if (!testOnly) replace(inputType, copyOf(pType));
  return S_OK;
}

HRESULT H264Transform::GetInputCurrentType(DWORD dwInputStreamID, IMFMediaType** ppType) {
  GATE("GetInputCurrentType");
  if (ppType != nullptr) *ppType = nullptr;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (ppType == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  return handOutCopy(inputType, ppType);
}

HRESULT H264Transform::GetOutputCurrentType(DWORD dwOutputStreamID, IMFMediaType** ppType) {
  GATE("GetOutputCurrentType");
  if (ppType != nullptr) *ppType = nullptr;
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwOutputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (ppType == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  return handOutCopy(outputType, ppType);
}

HRESULT H264Transform::GetInputStatus(DWORD dwInputStreamID, DWORD* pdwFlags) {
  GATE("GetInputStatus");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (dwInputStreamID != 0) return MF_E_INVALIDSTREAMNUMBER;
  if (pdwFlags == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  if (inputType == nullptr) return MF_E_TRANSFORM_TYPE_NOT_SET;
  bool accepts = async() ? credits > 0 : outputs.empty();
  *pdwFlags = accepts ? MFT_INPUT_STATUS_ACCEPT_DATA : 0;
  return S_OK;
}

HRESULT H264Transform::GetOutputStatus(DWORD* pdwFlags) {
  GATE("GetOutputStatus");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  if (pdwFlags == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> lock(mutex);
  *pdwFlags = outputs.empty() ? 0 : MFT_OUTPUT_STATUS_SAMPLE_READY;
  return S_OK;
}

HRESULT H264Transform::SetOutputBounds(LONGLONG, LONGLONG) {
  GATE("SetOutputBounds");
  return E_NOTIMPL;
}

HRESULT H264Transform::ProcessEvent(DWORD, IMFMediaEvent*) {
  GATE("ProcessEvent");
  return E_NOTIMPL;
}

HRESULT H264Transform::setManager(ULONG_PTR param) {
  // Only the hardware transform works on Direct3D: the software ones aren't D3D-aware.
  if (!async()) return E_NOTIMPL;
  IUnknown* given = reinterpret_cast<IUnknown*>(param);
  IMFDXGIDeviceManager* next = nullptr;
  ID3D11Device* device = nullptr;
  if (given != nullptr) {
    if (HRESULT hr = given->QueryInterface(IID_IMFDXGIDeviceManager, reinterpret_cast<void**>(&next)); FAILED(hr))
      return hr;
    device = managedDevice(next);
    if (device == nullptr) {
      next->Release();
      return MF_E_DXGI_DEVICE_NOT_INITIALIZED;
    }
    // Pinned to its own adapter: a device made on another one is refused.
    d3d11::Device* own = d3d11::Device::from(device);
    if (own == nullptr || own->adapter() == nullptr || own->adapter()->index() != pinnedAdapter) {
      device->Release();
      next->Release();
      return MF_E_UNSUPPORTED_D3D_TYPE;
    }
  }
  std::lock_guard<std::mutex> lock(mutex);
  std::swap(manager, next);
  std::swap(managerDevice, device);
  if (next != nullptr) next->Release();
  if (device != nullptr) device->Release();
  return S_OK;
}

HRESULT H264Transform::ProcessMessage(MFT_MESSAGE_TYPE eMessage, ULONG_PTR ulParam) {
  GATE("ProcessMessage");
  if (HRESULT hr = lockedAnswer(); FAILED(hr)) return hr;
  switch (eMessage) {
    case MFT_MESSAGE_SET_D3D_MANAGER:
      return setManager(ulParam);
    case MFT_MESSAGE_NOTIFY_BEGIN_STREAMING: {
      std::lock_guard<std::mutex> lock(mutex);
      streaming = true;
      return S_OK;
    }
    case MFT_MESSAGE_NOTIFY_START_OF_STREAM:
      startOfStream();
      return S_OK;
    case MFT_MESSAGE_COMMAND_DRAIN:
      drain();
      return S_OK;
    case MFT_MESSAGE_COMMAND_FLUSH:
      flush();
      return S_OK;
    case MFT_MESSAGE_NOTIFY_END_STREAMING: {
      std::lock_guard<std::mutex> lock(mutex);
      streaming = false;
      return S_OK;
    }
    case MFT_MESSAGE_NOTIFY_END_OF_STREAM:
    case MFT_MESSAGE_COMMAND_TICK:
    case MFT_MESSAGE_DROP_SAMPLES:
    case MFT_MESSAGE_COMMAND_MARKER:
      return S_OK;
  }
  return E_INVALIDARG;
}

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

IMFTransform* newH264Transform(TransformKind kind, UINT pinnedAdapter) {
  IMFTransform* made = nullptr;
  handOut(new H264Transform(kind, pinnedAdapter), &made);
  return made;
}

}  // namespace platform::mf
