// Media events, and the queue that generators hand them out of.
#include <utility>

#include "mferror.h"
#include "platform/core/com_object.h"
#include "platform/mf/attributes_object.h"
#include "platform/mf/event_queue.h"

namespace platform::mf {
namespace {

class MediaEvent final : public AttributesObject<IMFMediaEvent> {
 public:
  MediaEvent(MediaEventType type, REFGUID extendedType, HRESULT status)
      : AttributesObject("IMFMediaEvent"), type(type), extendedType(extendedType), status(status) {}

  HRESULT STDMETHODCALLTYPE GetType(MediaEventType* pmet) override {
    if (HRESULT hr = enter("IMFMediaEvent::GetType"); hr != S_OK) return hr;
    if (pmet == nullptr) return E_POINTER;
    *pmet = type;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetExtendedType(GUID* pguidExtendedType) override {
    if (HRESULT hr = enter("IMFMediaEvent::GetExtendedType"); hr != S_OK) return hr;
    if (pguidExtendedType == nullptr) return E_POINTER;
    *pguidExtendedType = extendedType;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetStatus(HRESULT* phrStatus) override {
    if (HRESULT hr = enter("IMFMediaEvent::GetStatus"); hr != S_OK) return hr;
    if (phrStatus == nullptr) return E_POINTER;
    *phrStatus = status;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetValue(PROPVARIANT* pvValue) override {
    if (HRESULT hr = enter("IMFMediaEvent::GetValue"); hr != S_OK) return hr;
    if (pvValue == nullptr) return E_POINTER;
    PropVariantInit(pvValue);
    return hasValue ? toPropVariant(value, pvValue) : S_OK;
  }

  bool hasValue = false;
  AttributeValue value;

 private:
  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFAttributes || riid == IID_IMFMediaEvent)
      return static_cast<IMFMediaEvent*>(this);
    return nullptr;
  }
  void releaseResources() override {
    value = AttributeValue();
    releaseAttributes();
  }

  const MediaEventType type;
  const GUID extendedType;
  const HRESULT status;
};

}  // namespace

IMFMediaEvent* newMediaEvent(MediaEventType type, REFGUID extendedType, HRESULT status, const PROPVARIANT* value) {
  auto* event = new MediaEvent(type, extendedType, status);
  if (value != nullptr && value->vt != VT_EMPTY) event->hasValue = SUCCEEDED(fromPropVariant(*value, &event->value));
  IMFMediaEvent* made = nullptr;
  handOut(event, &made);
  return made;
}

EventQueue::~EventQueue() { shutdown(); }

void EventQueue::queue(MediaEventType type, HRESULT status) {
  IMFMediaEvent* event = newMediaEvent(type, GUID{}, status, nullptr);
  if (FAILED(queueEvent(event))) event->Release();
}

HRESULT EventQueue::queueEvent(IMFMediaEvent* event) {
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (shutDown) return MF_E_SHUTDOWN;
    events.push_back(event);
  }
  arrived.notify_all();
  return S_OK;
}

HRESULT EventQueue::get(DWORD flags, IMFMediaEvent** event) {
  std::unique_lock<std::mutex> lock(mutex);
  if ((flags & MF_EVENT_FLAG_NO_WAIT) != 0) {
    if (shutDown) return MF_E_SHUTDOWN;
    if (events.empty()) return MF_E_NO_EVENTS_AVAILABLE;
  } else {
    arrived.wait(lock, [&] { return shutDown || !events.empty(); });
    if (shutDown) return MF_E_SHUTDOWN;
  }
  *event = events.front();
  events.pop_front();
  return S_OK;
}

void EventQueue::shutdown() {
  std::deque<IMFMediaEvent*> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex);
    shutDown = true;
    dropped.swap(events);
  }
  arrived.notify_all();
  for (IMFMediaEvent* event : dropped) event->Release();
}

size_t EventQueue::pending() {
  std::lock_guard<std::mutex> lock(mutex);
  return events.size();
}

}  // namespace platform::mf
