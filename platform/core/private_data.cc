#include "platform/core/private_data.h"

#include <cstring>

namespace platform {

void PrivateData::removeLocked(REFGUID guid, std::vector<IUnknown*>* released) {
  for (auto it = entries.begin(); it != entries.end(); ++it) {
    if (!IsEqualGUID(it->guid, guid)) continue;
    if (it->object != nullptr) released->push_back(it->object);
    entries.erase(it);
    return;
  }
}

HRESULT PrivateData::set(REFGUID guid, UINT size, const void* data) {
  std::vector<IUnknown*> released;
  {
    std::lock_guard<std::mutex> lock(mutex);
    removeLocked(guid, &released);
    if (data != nullptr && size > 0) {
      const uint8_t* bytes = static_cast<const uint8_t*>(data);
      entries.push_back({guid, std::vector<uint8_t>(bytes, bytes + size), nullptr});
    }
  }
  for (IUnknown* object : released) object->Release();  // outside the lock: it may call back
  return S_OK;
}

HRESULT PrivateData::setInterface(REFGUID guid, const IUnknown* object) {
  IUnknown* held = const_cast<IUnknown*>(object);
  if (held != nullptr) held->AddRef();
  std::vector<IUnknown*> released;
  {
    std::lock_guard<std::mutex> lock(mutex);
    removeLocked(guid, &released);
    if (held != nullptr) entries.push_back({guid, {}, held});
  }
  for (IUnknown* old : released) old->Release();
  return S_OK;
}

HRESULT PrivateData::get(REFGUID guid, UINT* size, void* data) {
  if (size == nullptr) return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(mutex);
  for (Entry& entry : entries) {
    if (!IsEqualGUID(entry.guid, guid)) continue;
    UINT needed = entry.object != nullptr ? UINT(sizeof(IUnknown*)) : UINT(entry.bytes.size());
    if (data == nullptr) {
      *size = needed;
      return S_OK;
    }
    if (*size < needed) {
      *size = needed;
      return DXGI_ERROR_MORE_DATA;
    }
    *size = needed;
    if (entry.object != nullptr) {
      entry.object->AddRef();
      std::memcpy(data, &entry.object, sizeof(IUnknown*));
    } else {
      std::memcpy(data, entry.bytes.data(), needed);
    }
    return S_OK;
  }
  *size = 0;
  return DXGI_ERROR_NOT_FOUND;
}

void PrivateData::clear() {
  std::vector<Entry> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex);
    dropped.swap(entries);
  }
  for (Entry& entry : dropped)
    if (entry.object != nullptr) entry.object->Release();
}

}  // namespace platform
