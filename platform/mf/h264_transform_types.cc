// The H.264 transform's media types: what it offers on each stream, what it accepts, and the
// settings the output type fixes.
#include "codecapi.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/mf/attribute_store.h"
#include "platform/mf/encoder_record.h"
#include "platform/mf/h264_transform.h"
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
  recordOutputType(pType);
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
}  // namespace platform::mf
