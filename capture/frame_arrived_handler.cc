#include "capture/frame_arrived_handler.h"

#include <utility>

FrameArrivedHandler::FrameArrivedHandler(std::shared_ptr<std::atomic<bool>> frameReady)
    : frameReady(std::move(frameReady)) {}

FrameArrivedHandler::~FrameArrivedHandler() {
  if (marshaler != nullptr) marshaler->Release();
}

HRESULT FrameArrivedHandler::QueryInterface(REFIID riid, void** ppvObject) {
  if (ppvObject == nullptr) return E_POINTER;
  *ppvObject = nullptr;
  if (IsEqualIID(riid, __uuidof(IUnknown)) || IsEqualIID(riid, __uuidof(FrameArrivedDelegate))) {
    *ppvObject = static_cast<FrameArrivedDelegate*>(this);
  } else if (IsEqualIID(riid, __uuidof(IAgileObject))) {
    *ppvObject = static_cast<IAgileObject*>(this);
  } else if (IsEqualIID(riid, __uuidof(IMarshal))) {
    return queryMarshaler(ppvObject);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

// The marshaler is aggregated: its IMarshal counts references on this object.
HRESULT FrameArrivedHandler::queryMarshaler(void** ppvObject) {
  std::lock_guard<std::mutex> lock(marshalerMutex);
  if (marshaler == nullptr) {
    HRESULT hr = CoCreateFreeThreadedMarshaler(static_cast<FrameArrivedDelegate*>(this), &marshaler);
    if (FAILED(hr)) {
      marshaler = nullptr;
      return hr;
    }
  }
  return marshaler->QueryInterface(__uuidof(IMarshal), ppvObject);
}

ULONG FrameArrivedHandler::AddRef() { return references.fetch_add(1) + 1; }

ULONG FrameArrivedHandler::Release() {
  ULONG left = references.fetch_sub(1) - 1;
  if (left == 0) delete this;
  return left;
}

HRESULT FrameArrivedHandler::Invoke(ABI::Windows::Graphics::Capture::IDirect3D11CaptureFramePool*, IInspectable*) {
  frameReady->store(true);
  return S_OK;
}
