// The H.264 transform's object and setup face: its interfaces, streams, the device manager and
// the messages that start, drain and flush a stream.
#include "platform/mf/h264_transform.h"

#include "codecapi.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/control/machine_control.h"
#include "platform/d3d11/device.h"
#include "platform/mf/attribute_store.h"
#include "platform/mf/objects.h"

namespace platform::mf {

// Every method of the transform is gated under "IMFTransform::<method>".
#define GATE(method)                                                   \
  if (HRESULT gated = enter("IMFTransform::" method); gated != S_OK) \
  return gated

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
  for (IMFMediaType* type : {outputType, inputType})
    if (type != nullptr) type->Release();
  outputType = inputType = nullptr;
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
  AttributeValue unlocked;
  return SUCCEEDED(storeOf(attributes)->get(MF_TRANSFORM_ASYNC_UNLOCK, MF_ATTRIBUTE_UINT32, &unlocked)) &&
                 unlocked.number != 0
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

IMFTransform* newH264Transform(TransformKind kind, UINT pinnedAdapter) {
  IMFTransform* made = nullptr;
  handOut(new H264Transform(kind, pinnedAdapter), &made);
  return made;
}

}  // namespace platform::mf
