// SetPrivateData / GetPrivateData storage that DXGI and Direct3D objects carry.
#pragma once

#include <mutex>
#include <vector>

#include "unknwn.h"

namespace platform {

class PrivateData {
 public:
  PrivateData() = default;
  PrivateData(const PrivateData&) = delete;
  PrivateData& operator=(const PrivateData&) = delete;
  ~PrivateData() { clear(); }

  // A null `data` or zero `size` removes the entry, as on Windows.
  HRESULT set(REFGUID guid, UINT size, const void* data);
  // Holds a reference to `object` until it is replaced or the owner goes.
  HRESULT setInterface(REFGUID guid, const IUnknown* object);
  HRESULT get(REFGUID guid, UINT* size, void* data);
  void clear();

 private:
  struct Entry {
    GUID guid;
    std::vector<uint8_t> bytes;
    IUnknown* object = nullptr;
  };
  void removeLocked(REFGUID guid, std::vector<IUnknown*>* released);

  std::mutex mutex;
  std::vector<Entry> entries;
};

}  // namespace platform
