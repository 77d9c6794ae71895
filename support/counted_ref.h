// A counted reference: owns one COM reference and releases it in its destructor.
#pragma once

#include <unknwn.h>

#include <utility>

template <class T>
class CountedRef {
 public:
  CountedRef() = default;
  CountedRef(const CountedRef& other) : pointer(other.pointer) { addRef(); }
  CountedRef(CountedRef&& other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
  ~CountedRef() { reset(); }

  CountedRef& operator=(const CountedRef& other) {
    share(other.pointer);
    return *this;
  }
  CountedRef& operator=(CountedRef&& other) noexcept {
    if (this != &other) attach(std::exchange(other.pointer, nullptr));
    return *this;
  }

  // Takes over a reference that the caller already owns.
  static CountedRef adopt(T* owned) {
    CountedRef ref;
    ref.pointer = owned;
    return ref;
  }

  T* get() const { return pointer; }
  T* operator->() const { return pointer; }
  explicit operator bool() const { return pointer != nullptr; }

  // Releases what is held and gives the slot to a call that fills it with a reference of its own.
  T** put() {
    reset();
    return &pointer;
  }
  void** putVoid() { return reinterpret_cast<void**>(put()); }

  // Holds `other` with a reference of its own; holding the same object already costs nothing.
  void share(T* other) {
    if (other == pointer) return;
    if (other != nullptr) other->AddRef();
    attach(other);
  }

  void attach(T* owned) {
    T* old = std::exchange(pointer, owned);
    if (old != nullptr) old->Release();
  }
  T* detach() { return std::exchange(pointer, nullptr); }
  void reset() { attach(nullptr); }

  // QueryInterface on `source` for T, into this reference.
  template <class U>
  HRESULT queryFrom(U* source) {
    if (source == nullptr) {
      reset();
      return E_POINTER;
    }
    return source->QueryInterface(__uuidof(T), putVoid());
  }

 private:
  void addRef() {
    if (pointer != nullptr) pointer->AddRef();
  }

  T* pointer = nullptr;
};
