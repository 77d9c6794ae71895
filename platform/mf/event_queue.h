// The event queue behind IMFMediaEventGenerator: events queued by any thread, taken in order by
// GetEvent, which waits for one unless told not to.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "mfobjects.h"

namespace platform::mf {

// A new event with one reference for the caller. `value` may be null (VT_EMPTY).
IMFMediaEvent* newMediaEvent(MediaEventType type, REFGUID extendedType, HRESULT status, const PROPVARIANT* value);

class EventQueue {
 public:
  EventQueue() = default;
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;
  ~EventQueue();

  void queue(MediaEventType type, HRESULT status = S_OK);
  // Takes over the caller's reference; refused with MF_E_SHUTDOWN after shutdown.
  HRESULT queueEvent(IMFMediaEvent* event);
  // MF_E_NO_EVENTS_AVAILABLE with MF_EVENT_FLAG_NO_WAIT and nothing queued; otherwise waits
  // until an event comes or the queue shuts down (MF_E_SHUTDOWN).
  HRESULT get(DWORD flags, IMFMediaEvent** event);
  // Drops what is queued and wakes every waiter.
  void shutdown();
  size_t pending();

 private:
  std::mutex mutex;
  std::condition_variable arrived;
  std::deque<IMFMediaEvent*> events;  // one reference each
  bool shutDown = false;
};

}  // namespace platform::mf
