#include <cstring>

#include "combaseapi.h"
#include "mferror.h"
#include "platform/mf/attributes_object.h"

namespace platform::mf {

HRESULT AttributesMethods::GetItem(REFGUID guidKey, PROPVARIANT* pValue) {
  AttributeValue value;
  if (HRESULT hr = store.getAny(guidKey, &value); FAILED(hr)) return hr;
  // A null pValue asks only whether the item exists.
  if (pValue == nullptr) return S_OK;
  return toPropVariant(value, pValue);
}

HRESULT AttributesMethods::GetItemType(REFGUID guidKey, MF_ATTRIBUTE_TYPE* pType) {
  if (pType == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.getAny(guidKey, &value); FAILED(hr)) return hr;
  *pType = value.type;
  return S_OK;
}

HRESULT AttributesMethods::CompareItem(REFGUID guidKey, REFPROPVARIANT Value, BOOL* pbResult) {
  if (pbResult == nullptr) return E_POINTER;
  *pbResult = FALSE;
  AttributeValue ours, theirs;
  if (FAILED(store.getAny(guidKey, &ours))) return S_OK;  // an absent item matches nothing
  if (HRESULT hr = fromPropVariant(Value, &theirs); FAILED(hr)) return hr;
  *pbResult = ours == theirs ? TRUE : FALSE;
  return S_OK;
}

HRESULT AttributesMethods::GetUINT32(REFGUID guidKey, UINT32* punValue) {
  if (punValue == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_UINT32, &value); FAILED(hr)) return hr;
  *punValue = UINT32(value.number);
  return S_OK;
}

HRESULT AttributesMethods::GetUINT64(REFGUID guidKey, UINT64* punValue) {
  if (punValue == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_UINT64, &value); FAILED(hr)) return hr;
  *punValue = value.number;
  return S_OK;
}

HRESULT AttributesMethods::GetDouble(REFGUID guidKey, double* pfValue) {
  if (pfValue == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_DOUBLE, &value); FAILED(hr)) return hr;
  *pfValue = value.real;
  return S_OK;
}

HRESULT AttributesMethods::GetGUID(REFGUID guidKey, GUID* pguidValue) {
  if (pguidValue == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_GUID, &value); FAILED(hr)) return hr;
  *pguidValue = value.guid;
  return S_OK;
}

HRESULT AttributesMethods::GetStringLength(REFGUID guidKey, UINT32* pcchLength) {
  if (pcchLength == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_STRING, &value); FAILED(hr)) return hr;
  *pcchLength = UINT32(value.text.size());
  return S_OK;
}

HRESULT AttributesMethods::GetString(REFGUID guidKey, LPWSTR pwszValue, UINT32 cchBufSize, UINT32* pcchLength) {
  if (pwszValue == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_STRING, &value); FAILED(hr)) return hr;
  // The size counts the terminating null.
  if (cchBufSize < value.text.size() + 1) return E_NOT_SUFFICIENT_BUFFER;
  std::memcpy(pwszValue, value.text.c_str(), (value.text.size() + 1) * sizeof(WCHAR));
  if (pcchLength != nullptr) *pcchLength = UINT32(value.text.size());
  return S_OK;
}

HRESULT AttributesMethods::GetAllocatedString(REFGUID guidKey, LPWSTR* ppwszValue, UINT32* pcchLength) {
  if (ppwszValue == nullptr || pcchLength == nullptr) return E_POINTER;
  *ppwszValue = nullptr;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_STRING, &value); FAILED(hr)) return hr;
  size_t bytes = (value.text.size() + 1) * sizeof(WCHAR);
  auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
  if (copy == nullptr) return E_OUTOFMEMORY;
  std::memcpy(copy, value.text.c_str(), bytes);
  *ppwszValue = copy;
  *pcchLength = UINT32(value.text.size());
  return S_OK;
}

HRESULT AttributesMethods::GetBlobSize(REFGUID guidKey, UINT32* pcbBlobSize) {
  if (pcbBlobSize == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_BLOB, &value); FAILED(hr)) return hr;
  *pcbBlobSize = UINT32(value.bytes.size());
  return S_OK;
}

HRESULT AttributesMethods::GetBlob(REFGUID guidKey, UINT8* pBuf, UINT32 cbBufSize, UINT32* pcbBlobSize) {
  if (pBuf == nullptr) return E_POINTER;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_BLOB, &value); FAILED(hr)) return hr;
  if (cbBufSize < value.bytes.size()) return E_NOT_SUFFICIENT_BUFFER;
  if (!value.bytes.empty()) std::memcpy(pBuf, value.bytes.data(), value.bytes.size());
  if (pcbBlobSize != nullptr) *pcbBlobSize = UINT32(value.bytes.size());
  return S_OK;
}

HRESULT AttributesMethods::GetAllocatedBlob(REFGUID guidKey, UINT8** ppBuf, UINT32* pcbSize) {
  if (ppBuf == nullptr || pcbSize == nullptr) return E_POINTER;
  *ppBuf = nullptr;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_BLOB, &value); FAILED(hr)) return hr;
  auto* copy = static_cast<UINT8*>(CoTaskMemAlloc(value.bytes.empty() ? 1 : value.bytes.size()));
  if (copy == nullptr) return E_OUTOFMEMORY;
  if (!value.bytes.empty()) std::memcpy(copy, value.bytes.data(), value.bytes.size());
  *ppBuf = copy;
  *pcbSize = UINT32(value.bytes.size());
  return S_OK;
}

HRESULT AttributesMethods::GetUnknown(REFGUID guidKey, REFIID riid, LPVOID* ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  AttributeValue value;
  if (HRESULT hr = store.get(guidKey, MF_ATTRIBUTE_IUNKNOWN, &value); FAILED(hr)) return hr;
  if (!value.object) return E_NOINTERFACE;
  return value.object->QueryInterface(riid, ppv);
}

HRESULT AttributesMethods::SetItem(REFGUID guidKey, REFPROPVARIANT Value) {
  AttributeValue value;
  if (HRESULT hr = fromPropVariant(Value, &value); FAILED(hr)) return hr;
  store.set(guidKey, std::move(value));
  return S_OK;
}

HRESULT AttributesMethods::SetString(REFGUID guidKey, LPCWSTR wszValue) {
  if (wszValue == nullptr) return E_POINTER;
  AttributeValue value;
  value.type = MF_ATTRIBUTE_STRING;
  value.text = wszValue;
  store.set(guidKey, std::move(value));
  return S_OK;
}

HRESULT AttributesMethods::SetBlob(REFGUID guidKey, const UINT8* pBuf, UINT32 cbBufSize) {
  if (pBuf == nullptr && cbBufSize != 0) return E_POINTER;
  AttributeValue value;
  value.type = MF_ATTRIBUTE_BLOB;
  if (cbBufSize != 0) value.bytes.assign(pBuf, pBuf + cbBufSize);
  store.set(guidKey, std::move(value));
  return S_OK;
}

HRESULT AttributesMethods::GetCount(UINT32* pcItems) {
  if (pcItems == nullptr) return E_POINTER;
  *pcItems = UINT32(store.items().size());
  return S_OK;
}

HRESULT AttributesMethods::GetItemByIndex(UINT32 unIndex, GUID* pguidKey, PROPVARIANT* pValue) {
  if (pguidKey == nullptr) return E_POINTER;
  AttributeItems items = store.items();
  if (unIndex >= items.size()) return E_INVALIDARG;
  *pguidKey = items[unIndex].key;
  return pValue == nullptr ? S_OK : toPropVariant(items[unIndex].value, pValue);
}

}  // namespace platform::mf
