// The free-threaded marshaler: an object made to be aggregated. Its own IUnknown is the
// non-delegating one that only the outer object holds; its IMarshal belongs to the outer object
// and sends AddRef, Release and QueryInterface there.
#include "objbase.h"
#include "platform/core/call_gate.h"
#include "platform/core/com_object.h"

namespace platform {
namespace {

class FreeThreadedMarshaler : public ComObject, public IMarshal {
 public:
  // Without an outer object the marshaler controls itself.
  explicit FreeThreadedMarshaler(IUnknown* outer)
      : ComObject("IMarshal"), inner(this), controlling(outer != nullptr ? outer : &inner) {}

  IUnknown* nonDelegatingUnknown() { return &inner; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
    return controlling->QueryInterface(riid, ppvObject);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return controlling->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return controlling->Release(); }

  // Every apartment of the process calls the object directly, so nothing is ever written to a
  // stream for another one: the platform has no proxies to unmarshal into.
  HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID* pCid) override {
    if (pCid != nullptr) *pCid = CLSID{};
    return refused("IMarshal::GetUnmarshalClass");
  }
  HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD, DWORD* pSize) override {
    if (pSize != nullptr) *pSize = 0;
    return refused("IMarshal::GetMarshalSizeMax");
  }
  HRESULT STDMETHODCALLTYPE MarshalInterface(IStream*, REFIID, void*, DWORD, void*, DWORD) override {
    return refused("IMarshal::MarshalInterface");
  }
  HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream*, REFIID, void** ppv) override {
    if (ppv != nullptr) *ppv = nullptr;
    return refused("IMarshal::UnmarshalInterface");
  }
  HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream*) override { return refused("IMarshal::ReleaseMarshalData"); }
  HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD) override { return enter("IMarshal::DisconnectObject"); }

 private:
  class NonDelegatingUnknown : public IUnknown {
   public:
    explicit NonDelegatingUnknown(FreeThreadedMarshaler* owner) : owner(owner) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
      return owner->innerQueryInterface(riid, ppvObject);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return owner->externalAddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return owner->externalRelease(); }

   private:
    FreeThreadedMarshaler* owner;
  };

  HRESULT refused(const char* call) {
    HRESULT hr = enter(call);
    return hr != S_OK ? hr : E_NOTIMPL;
  }

  // IUnknown answers with the marshaler's own identity and reference; IMarshal with the
  // interface whose reference counts belong to the outer object.
  HRESULT innerQueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (HRESULT hr = enter(queryInterfaceCallName(riid)); hr != S_OK) return hr;
    if (IsEqualIID(riid, IID_IUnknown)) {
      addRef();
      *ppvObject = &inner;
      return S_OK;
    }
    if (IsEqualIID(riid, IID_IMarshal)) {
      controlling->AddRef();
      *ppvObject = static_cast<IMarshal*>(this);
      return S_OK;
    }
    return E_NOINTERFACE;
  }

  void* interfaceFor(REFIID riid) override {
    if (IsEqualIID(riid, IID_IUnknown)) return &inner;
    return nullptr;
  }
  void releaseResources() override {}

  NonDelegatingUnknown inner;
  IUnknown* controlling;  // not a reference: the outer object holds the marshaler, not the reverse
};

}  // namespace
}  // namespace platform

HRESULT WINAPI CoCreateFreeThreadedMarshaler(LPUNKNOWN punkOuter, LPUNKNOWN* ppunkMarshal) {
  HRESULT planned = platform::plannedHresult("CoCreateFreeThreadedMarshaler");
  if (ppunkMarshal != nullptr) *ppunkMarshal = nullptr;
  if (planned != S_OK) return planned;
  if (ppunkMarshal == nullptr) return E_INVALIDARG;
  auto* marshaler = new platform::FreeThreadedMarshaler(punkOuter);
  marshaler->addRef();
  *ppunkMarshal = marshaler->nonDelegatingUnknown();
  return S_OK;
}
