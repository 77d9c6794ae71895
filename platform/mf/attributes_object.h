// IMFAttributes for any platform object whose interface derives from it: the attribute store,
// media types and samples. Each method passes the gate under "IMFAttributes::<method>".
#pragma once

#include "mfobjects.h"
#include "platform/core/com_object.h"
#include "platform/mf/attribute_store.h"

namespace platform::mf {

// The IMFAttributes methods that take more than a line, on a store; the object passes the gate.
class AttributesMethods {
 public:
  explicit AttributesMethods(AttributeStore& store) : store(store) {}

  HRESULT GetItem(REFGUID guidKey, PROPVARIANT* pValue);
  HRESULT GetItemType(REFGUID guidKey, MF_ATTRIBUTE_TYPE* pType);
  HRESULT CompareItem(REFGUID guidKey, REFPROPVARIANT Value, BOOL* pbResult);
  HRESULT GetUINT32(REFGUID guidKey, UINT32* punValue);
  HRESULT GetUINT64(REFGUID guidKey, UINT64* punValue);
  HRESULT GetDouble(REFGUID guidKey, double* pfValue);
  HRESULT GetGUID(REFGUID guidKey, GUID* pguidValue);
  HRESULT GetStringLength(REFGUID guidKey, UINT32* pcchLength);
  HRESULT GetString(REFGUID guidKey, LPWSTR pwszValue, UINT32 cchBufSize, UINT32* pcchLength);
  HRESULT GetAllocatedString(REFGUID guidKey, LPWSTR* ppwszValue, UINT32* pcchLength);
  HRESULT GetBlobSize(REFGUID guidKey, UINT32* pcbBlobSize);
  HRESULT GetBlob(REFGUID guidKey, UINT8* pBuf, UINT32 cbBufSize, UINT32* pcbBlobSize);
  HRESULT GetAllocatedBlob(REFGUID guidKey, UINT8** ppBuf, UINT32* pcbSize);
  HRESULT GetUnknown(REFGUID guidKey, REFIID riid, LPVOID* ppv);
  HRESULT SetItem(REFGUID guidKey, REFPROPVARIANT Value);
  HRESULT SetString(REFGUID guidKey, LPCWSTR wszValue);
  HRESULT SetBlob(REFGUID guidKey, const UINT8* pBuf, UINT32 cbBufSize);
  HRESULT GetCount(UINT32* pcItems);
  HRESULT GetItemByIndex(UINT32 unIndex, GUID* pguidKey, PROPVARIANT* pValue);

 private:
  AttributeStore& store;
};

template <class Interface>
class AttributesObject : public ComObject, public Interface {
 public:
  PLATFORM_IUNKNOWN_METHODS

#define PLATFORM_MF_GATED(call, body)                    \
  if (HRESULT hr = enter("IMFAttributes::" call); hr != S_OK) \
    return hr;                                           \
  return body

  HRESULT STDMETHODCALLTYPE GetItem(REFGUID k, PROPVARIANT* v) override {
    PLATFORM_MF_GATED("GetItem", methods.GetItem(k, v));
  }
  HRESULT STDMETHODCALLTYPE GetItemType(REFGUID k, MF_ATTRIBUTE_TYPE* t) override {
    PLATFORM_MF_GATED("GetItemType", methods.GetItemType(k, t));
  }
  HRESULT STDMETHODCALLTYPE CompareItem(REFGUID k, REFPROPVARIANT v, BOOL* r) override {
    PLATFORM_MF_GATED("CompareItem", methods.CompareItem(k, v, r));
  }
  HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE m, BOOL* r) override {
    PLATFORM_MF_GATED("Compare", store.compare(theirs, m, r));
  }
  HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID k, UINT32* v) override {
    PLATFORM_MF_GATED("GetUINT32", methods.GetUINT32(k, v));
  }
  HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID k, UINT64* v) override {
    PLATFORM_MF_GATED("GetUINT64", methods.GetUINT64(k, v));
  }
  HRESULT STDMETHODCALLTYPE GetDouble(REFGUID k, double* v) override {
    PLATFORM_MF_GATED("GetDouble", methods.GetDouble(k, v));
  }
  HRESULT STDMETHODCALLTYPE GetGUID(REFGUID k, GUID* v) override {
    PLATFORM_MF_GATED("GetGUID", methods.GetGUID(k, v));
  }
  HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID k, UINT32* n) override {
    PLATFORM_MF_GATED("GetStringLength", methods.GetStringLength(k, n));
  }
  HRESULT STDMETHODCALLTYPE GetString(REFGUID k, LPWSTR s, UINT32 size, UINT32* n) override {
    PLATFORM_MF_GATED("GetString", methods.GetString(k, s, size, n));
  }
  HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID k, LPWSTR* s, UINT32* n) override {
    PLATFORM_MF_GATED("GetAllocatedString", methods.GetAllocatedString(k, s, n));
  }
  HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID k, UINT32* n) override {
    PLATFORM_MF_GATED("GetBlobSize", methods.GetBlobSize(k, n));
  }
  HRESULT STDMETHODCALLTYPE GetBlob(REFGUID k, UINT8* b, UINT32 size, UINT32* n) override {
    PLATFORM_MF_GATED("GetBlob", methods.GetBlob(k, b, size, n));
  }
  HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID k, UINT8** b, UINT32* n) override {
    PLATFORM_MF_GATED("GetAllocatedBlob", methods.GetAllocatedBlob(k, b, n));
  }
  HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID k, REFIID riid, LPVOID* ppv) override {
    PLATFORM_MF_GATED("GetUnknown", methods.GetUnknown(k, riid, ppv));
  }
  HRESULT STDMETHODCALLTYPE SetItem(REFGUID k, REFPROPVARIANT v) override {
    PLATFORM_MF_GATED("SetItem", methods.SetItem(k, v));
  }
  HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID k) override { PLATFORM_MF_GATED("DeleteItem", (store.erase(k), S_OK)); }
  HRESULT STDMETHODCALLTYPE DeleteAllItems() override { PLATFORM_MF_GATED("DeleteAllItems", (store.clear(), S_OK)); }
  HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID k, UINT32 v) override {
    PLATFORM_MF_GATED("SetUINT32", (store.set(k, number(MF_ATTRIBUTE_UINT32, v)), S_OK));
  }
  HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID k, UINT64 v) override {
    PLATFORM_MF_GATED("SetUINT64", (store.set(k, number(MF_ATTRIBUTE_UINT64, v)), S_OK));
  }
  HRESULT STDMETHODCALLTYPE SetDouble(REFGUID k, double v) override {
    AttributeValue value;
    value.type = MF_ATTRIBUTE_DOUBLE;
    value.real = v;
    PLATFORM_MF_GATED("SetDouble", (store.set(k, std::move(value)), S_OK));
  }
  HRESULT STDMETHODCALLTYPE SetGUID(REFGUID k, REFGUID v) override {
    AttributeValue value;
    value.type = MF_ATTRIBUTE_GUID;
    value.guid = v;
    PLATFORM_MF_GATED("SetGUID", (store.set(k, std::move(value)), S_OK));
  }
  HRESULT STDMETHODCALLTYPE SetString(REFGUID k, LPCWSTR v) override {
    PLATFORM_MF_GATED("SetString", methods.SetString(k, v));
  }
  HRESULT STDMETHODCALLTYPE SetBlob(REFGUID k, const UINT8* b, UINT32 n) override {
    PLATFORM_MF_GATED("SetBlob", methods.SetBlob(k, b, n));
  }
  HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID k, IUnknown* v) override {
    PLATFORM_MF_GATED("SetUnknown", (store.set(k, holding(v)), S_OK));
  }
  HRESULT STDMETHODCALLTYPE LockStore() override { PLATFORM_MF_GATED("LockStore", (store.lock(), S_OK)); }
  HRESULT STDMETHODCALLTYPE UnlockStore() override { PLATFORM_MF_GATED("UnlockStore", store.unlock()); }
  HRESULT STDMETHODCALLTYPE GetCount(UINT32* n) override { PLATFORM_MF_GATED("GetCount", methods.GetCount(n)); }
  HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 i, GUID* k, PROPVARIANT* v) override {
    PLATFORM_MF_GATED("GetItemByIndex", methods.GetItemByIndex(i, k, v));
  }
  HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* destination) override {
    PLATFORM_MF_GATED("CopyAllItems", store.copyAllItems(destination));
  }
#undef PLATFORM_MF_GATED

  AttributeStore& attributes() { return store; }

 protected:
  explicit AttributesObject(const char* interfaceName) : ComObject(interfaceName) {}

  // Drops held values (IUnknown references among them) when the object goes.
  void releaseAttributes() { store.clear(); }

 private:
  static AttributeValue number(MF_ATTRIBUTE_TYPE type, UINT64 value) {
    AttributeValue result;
    result.type = type;
    result.number = value;
    return result;
  }

  AttributeStore store;
  AttributesMethods methods{store};
};

}  // namespace platform::mf
