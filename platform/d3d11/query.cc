#include "platform/d3d11/query.h"

#include "platform/d3d11/device.h"

namespace platform::d3d11 {

Query::Query(Device* device, const D3D11_QUERY_DESC& desc) : DeviceObject("ID3D11Query", device), queryDesc(desc) {}

Query* Query::from(ID3D11Asynchronous* async) {
  return async == nullptr ? nullptr : dynamic_cast<Query*>(async);
}

void* Query::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11Asynchronous ||
      riid == IID_ID3D11Query)
    return static_cast<ID3D11Query*>(this);
  return nullptr;
}

UINT Query::GetDataSize() {
  if (!enterVoid("ID3D11Asynchronous::GetDataSize")) return 0;
  return UINT(sizeof(BOOL));
}

void Query::GetDesc(D3D11_QUERY_DESC* pDesc) {
  if (!enterVoid("ID3D11Query::GetDesc") || pDesc == nullptr) return;
  *pDesc = queryDesc;
}

void Query::issue(bool workQueued, uint64_t flushes) {
  std::lock_guard<std::mutex> lock(mutex);
  wasIssued = true;
  needsFlush = workQueued;
  flushesAtEnd = flushes;
  pollsBeforeDone = workQueued ? 1 : 0;
}

HRESULT Query::poll(uint64_t flushes) {
  std::lock_guard<std::mutex> lock(mutex);
  if (needsFlush && flushes == flushesAtEnd) return S_FALSE;
  if (pollsBeforeDone > 0) {
    --pollsBeforeDone;
    return S_FALSE;
  }
  return S_OK;
}

bool Query::issued() {
  std::lock_guard<std::mutex> lock(mutex);
  return wasIssued;
}

}  // namespace platform::d3d11
