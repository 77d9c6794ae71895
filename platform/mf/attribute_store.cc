#include "platform/mf/attribute_store.h"

#include <cstring>
#include <utility>

#include "combaseapi.h"
#include "mferror.h"

namespace platform::mf {
namespace {

template <class T>
T* taskCopy(const T* source, size_t count) {
  T* copy = static_cast<T*>(CoTaskMemAlloc(count * sizeof(T)));
  if (copy != nullptr && count != 0) std::memcpy(copy, source, count * sizeof(T));
  return copy;
}

bool subsetOf(const AttributeItems& part, const AttributeItems& whole) {
  for (const AttributeItem& item : part) {
    const AttributeValue* other = findItem(whole, item.key);
    if (other == nullptr || !(*other == item.value)) return false;
  }
  return true;
}

}  // namespace

bool AttributeValue::operator==(const AttributeValue& other) const {
  if (type != other.type) return false;
  switch (type) {
    case MF_ATTRIBUTE_UINT32:
    case MF_ATTRIBUTE_UINT64:
      return number == other.number;
    case MF_ATTRIBUTE_DOUBLE:
      return real == other.real;
    case MF_ATTRIBUTE_GUID:
      return IsEqualGUID(guid, other.guid);
    case MF_ATTRIBUTE_STRING:
      return text == other.text;
    case MF_ATTRIBUTE_BLOB:
      return bytes == other.bytes;
    case MF_ATTRIBUTE_IUNKNOWN:
      return object.get() == other.object.get();
  }
  return false;
}

AttributeValue holding(IUnknown* object) {
  AttributeValue value;
  value.type = MF_ATTRIBUTE_IUNKNOWN;
  if (object != nullptr) {
    object->AddRef();
    value.object = std::shared_ptr<IUnknown>(object, [](IUnknown* held) { held->Release(); });
  }
  return value;
}

HRESULT fromPropVariant(const PROPVARIANT& variant, AttributeValue* value) {
  AttributeValue result;
  switch (variant.vt) {
    case VT_UI4:
      result.type = MF_ATTRIBUTE_UINT32;
      result.number = variant.ulVal;
      break;
    case VT_UI8:
      result.type = MF_ATTRIBUTE_UINT64;
      result.number = variant.uhVal.QuadPart;
      break;
    case VT_R8:
      result.type = MF_ATTRIBUTE_DOUBLE;
      result.real = variant.dblVal;
      break;
    case VT_CLSID:
      if (variant.puuid == nullptr) return E_INVALIDARG;
      result.type = MF_ATTRIBUTE_GUID;
      result.guid = *variant.puuid;
      break;
    case VT_LPWSTR:
      if (variant.pwszVal == nullptr) return E_INVALIDARG;
      result.type = MF_ATTRIBUTE_STRING;
      result.text = variant.pwszVal;
      break;
    case VT_VECTOR | VT_UI1:
      result.type = MF_ATTRIBUTE_BLOB;
      result.bytes.assign(variant.caub.pElems, variant.caub.pElems + variant.caub.cElems);
      break;
    case VT_UNKNOWN:
      result = holding(variant.punkVal);
      break;
    default:
      return MF_E_INVALIDTYPE;
  }
  *value = std::move(result);
  return S_OK;
}

HRESULT toPropVariant(const AttributeValue& value, PROPVARIANT* variant) {
  PropVariantInit(variant);
  switch (value.type) {
    case MF_ATTRIBUTE_UINT32:
      variant->ulVal = ULONG(value.number);
      break;
    case MF_ATTRIBUTE_UINT64:
      variant->uhVal.QuadPart = value.number;
      break;
    case MF_ATTRIBUTE_DOUBLE:
      variant->dblVal = value.real;
      break;
    case MF_ATTRIBUTE_GUID:
      if ((variant->puuid = taskCopy(&value.guid, 1)) == nullptr) return E_OUTOFMEMORY;
      break;
    case MF_ATTRIBUTE_STRING:
      if ((variant->pwszVal = taskCopy(value.text.c_str(), value.text.size() + 1)) == nullptr) return E_OUTOFMEMORY;
      break;
    case MF_ATTRIBUTE_BLOB:
      variant->caub.cElems = ULONG(value.bytes.size());
      if ((variant->caub.pElems = taskCopy(value.bytes.data(), value.bytes.size())) == nullptr) return E_OUTOFMEMORY;
      break;
    case MF_ATTRIBUTE_IUNKNOWN:
      variant->punkVal = value.object.get();
      if (variant->punkVal != nullptr) variant->punkVal->AddRef();
      break;
  }
  variant->vt = VARTYPE(value.type);
  return S_OK;
}

HRESULT readItems(IMFAttributes* source, AttributeItems* items) {
  items->clear();
  UINT32 count = 0;
  if (HRESULT hr = source->GetCount(&count); FAILED(hr)) return hr;
  for (UINT32 i = 0; i < count; ++i) {
    AttributeItem item{};
    PROPVARIANT variant;
    PropVariantInit(&variant);
    HRESULT hr = source->GetItemByIndex(i, &item.key, &variant);
    if (SUCCEEDED(hr)) hr = fromPropVariant(variant, &item.value);
    PropVariantClear(&variant);
    if (FAILED(hr)) return hr;
    items->push_back(std::move(item));
  }
  return S_OK;
}

const AttributeValue* findItem(const AttributeItems& items, REFGUID key) {
  for (const AttributeItem& item : items)
    if (IsEqualGUID(item.key, key)) return &item.value;
  return nullptr;
}

HRESULT AttributeStore::get(REFGUID key, MF_ATTRIBUTE_TYPE type, AttributeValue* value) const {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  const AttributeValue* found = findItem(entries, key);
  if (found == nullptr) return MF_E_ATTRIBUTENOTFOUND;
  if (found->type != type) return MF_E_INVALIDTYPE;
  *value = *found;
  return S_OK;
}

HRESULT AttributeStore::getAny(REFGUID key, AttributeValue* value) const {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  const AttributeValue* found = findItem(entries, key);
  if (found == nullptr) return MF_E_ATTRIBUTENOTFOUND;
  *value = *found;
  return S_OK;
}

void AttributeStore::set(REFGUID key, AttributeValue value) {
  AttributeValue replaced;  // released outside the lock: a release may run arbitrary code
  std::lock_guard<std::recursive_mutex> lock(mutex);
  for (AttributeItem& item : entries) {
    if (!IsEqualGUID(item.key, key)) continue;
    replaced = std::exchange(item.value, std::move(value));
    return;
  }
  entries.push_back({key, std::move(value)});
}

void AttributeStore::erase(REFGUID key) {
  AttributeItems dropped;
  std::lock_guard<std::recursive_mutex> lock(mutex);
  for (auto it = entries.begin(); it != entries.end(); ++it) {
    if (!IsEqualGUID(it->key, key)) continue;
    dropped.push_back(std::move(*it));
    entries.erase(it);
    return;
  }
}

void AttributeStore::clear() {
  AttributeItems dropped;
  std::lock_guard<std::recursive_mutex> lock(mutex);
  dropped.swap(entries);
}

AttributeItems AttributeStore::items() const {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  return entries;
}

HRESULT AttributeStore::compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType, BOOL* result) const {
  if (theirs == nullptr || result == nullptr) return E_POINTER;
  // Both sides are copied before comparing, so that comparing a store with itself needs no
  // second lock.
  AttributeItems ours = items();
  AttributeItems other;
  if (HRESULT hr = readItems(theirs, &other); FAILED(hr)) return hr;
  bool match = false;
  switch (matchType) {
    case MF_ATTRIBUTES_MATCH_OUR_ITEMS:
      match = subsetOf(ours, other);
      break;
    case MF_ATTRIBUTES_MATCH_THEIR_ITEMS:
      match = subsetOf(other, ours);
      break;
    case MF_ATTRIBUTES_MATCH_ALL_ITEMS:
      match = ours.size() == other.size() && subsetOf(ours, other);
      break;
    case MF_ATTRIBUTES_MATCH_INTERSECTION:
      match = true;
      for (const AttributeItem& item : ours) {
        const AttributeValue* value = findItem(other, item.key);
        if (value != nullptr && !(*value == item.value)) match = false;
      }
      break;
    case MF_ATTRIBUTES_MATCH_SMALLER:
      match = ours.size() <= other.size() ? subsetOf(ours, other) : subsetOf(other, ours);
      break;
    default:
      return E_INVALIDARG;
  }
  *result = match ? TRUE : FALSE;
  return S_OK;
}

HRESULT AttributeStore::copyAllItems(IMFAttributes* destination) const {
  if (destination == nullptr) return E_POINTER;
  AttributeItems copied = items();
  if (HRESULT hr = destination->DeleteAllItems(); FAILED(hr)) return hr;
  for (const AttributeItem& item : copied) {
    PROPVARIANT variant;
    HRESULT hr = toPropVariant(item.value, &variant);
    if (SUCCEEDED(hr)) hr = destination->SetItem(item.key, variant);
    PropVariantClear(&variant);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

void AttributeStore::lock() {
  mutex.lock();
  lockOwner = std::this_thread::get_id();
  ++lockDepth;
}

HRESULT AttributeStore::unlock() {
  // An unlock without a lock of this thread would release someone else's: refused.
  std::lock_guard<std::recursive_mutex> guard(mutex);
  if (lockDepth == 0 || lockOwner != std::this_thread::get_id()) return E_UNEXPECTED;
  if (--lockDepth == 0) lockOwner = std::thread::id();
  mutex.unlock();
  return S_OK;
}

}  // namespace platform::mf
