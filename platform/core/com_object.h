// The base of every COM object of the software GPU: a thread-safe reference count, the
// QueryInterface protocol, live counts per interface, and the gate every method passes first.
//
// An object has references (what the application holds, what Release answers) and pins (holds
// among platform objects: a texture pins its device, a device its adapter). Its resources go
// when both reach zero. A method called through a pointer whose references are all released is
// a use after the final Release: the debug layer records it and the call fails instead of
// crashing, because the object's shell stays in a bounded quarantine after its resources go.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "unknwn.h"
#include "windows.h"

namespace platform {

class ComObject {
 public:
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  // References taken and dropped by the platform itself: handing a pointer to the application
  // takes one. Taking one when none is left is how a child hands out its device again.
  ULONG addRef();
  ULONG release();
  void pin();
  void unpin();

  // Gives the application a reference to the `riid` interface, for the platform's own answers
  // (a creation function's result): no fault gate, no call counted.
  HRESULT answerAs(REFIID riid, void** out);

  ULONG references() const { return ULONG(counts.load() & kReferenceMask); }
  bool destroyed() const { return gone.load(); }
  // The interface the object is counted under, e.g. "ID3D11Texture2D".
  const char* name() const { return objectName; }

 protected:
  explicit ComObject(const char* interfaceName);
  virtual ~ComObject() = default;

  // IUnknown as the application calls it.
  HRESULT queryInterface(REFIID riid, void** ppvObject);
  ULONG externalAddRef();
  ULONG externalRelease();

  // The top of every method: counts the call under `call`, serves the fault plan, and refuses
  // a call on a released object. enter answers S_OK when the method is to run.
  HRESULT enter(const char* call);
  bool enterVoid(const char* call);
  // Whether the application may still call through this object's pointers.
  bool callable() const;

  // The pointer that answers for `riid` without a reference, or null if the object has none.
  virtual void* interfaceFor(REFIID riid) = 0;
  // Drops memory and holds on other objects; runs once, when references and pins are gone.
  virtual void releaseResources() = 0;
  // References appeared (0 to 1) or were all released (1 to 0).
  virtual void firstReference() {}
  virtual void lastReference() {}
  // True while calls through released pointers are still sound, as for an immediate context
  // whose device lives.
  virtual bool callableWithoutReferences() const { return false; }

 private:
  static constexpr uint64_t kReferenceMask = 0xFFFFFFFFull;
  static constexpr uint64_t kPin = 1ull << 32;

  void destroy();
  void releaseViolation(const char* call);

  std::atomic<uint64_t> counts{0};  // references in the low half, pins in the high half
  std::atomic<bool> gone{false};
  const char* objectName;
};

// The fault-plan name of a QueryInterface for `riid`: "QueryInterface(ID3D11Device1)".
const char* queryInterfaceCallName(REFIID riid);

// A pin held by one platform object on another.
template <class T>
class Pin {
 public:
  Pin() = default;
  explicit Pin(T* object) { reset(object); }
  Pin(Pin&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
  Pin& operator=(Pin&& other) noexcept {
    if (this != &other) {
      reset();
      object = std::exchange(other.object, nullptr);
    }
    return *this;
  }
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() { reset(); }

  void reset(T* next = nullptr) {
    if (next != nullptr) next->pin();
    T* old = std::exchange(object, next);
    if (old != nullptr) old->unpin();
  }
  T* get() const { return object; }
  T* operator->() const { return object; }
  explicit operator bool() const { return object != nullptr; }

 private:
  T* object = nullptr;
};

// Hands `object` to the application through `out` with a reference of its own.
template <class Interface, class Object>
void handOut(Object* object, Interface** out) {
  object->addRef();
  *out = static_cast<Interface*>(object);
}

// Answers with a new object's `riid` interface; the object goes again if it has none.
template <class Object>
HRESULT answerNew(Object* object, REFIID riid, void** out) {
  object->addRef();
  HRESULT hr = object->answerAs(riid, out);
  object->release();
  return hr;
}

}  // namespace platform

// IUnknown for a class deriving from ComObject and from one or more interfaces.
#define PLATFORM_IUNKNOWN_METHODS                                                      \
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {  \
    return queryInterface(riid, ppvObject);                                           \
  }                                                                                   \
  ULONG STDMETHODCALLTYPE AddRef() override { return externalAddRef(); }              \
  ULONG STDMETHODCALLTYPE Release() override { return externalRelease(); }
