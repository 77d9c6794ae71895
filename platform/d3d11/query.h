// Queries. Only the event query is served: it tells when the work queued before End is done.
#pragma once

#include <mutex>

#include "d3d11.h"
#include "platform/d3d11/device_object.h"

namespace platform::d3d11 {

class Query final : public ID3D11Query, public DeviceObject {
 public:
  Query(Device* device, const D3D11_QUERY_DESC& desc);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  UINT STDMETHODCALLTYPE GetDataSize() override;
  void STDMETHODCALLTYPE GetDesc(D3D11_QUERY_DESC* pDesc) override;

  static Query* from(ID3D11Asynchronous* async);

  // End: `workQueued` tells whether commands were queued since the previous End; `flushes`
  // counts the context's flushes so far.
  void issue(bool workQueued, uint64_t flushes);
  // GetData's answer: S_OK once done, S_FALSE before. Work that no flush has submitted since
  // End never completes.
  HRESULT poll(uint64_t flushes);
  bool issued();

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override { releaseDeviceObject(); }

  const D3D11_QUERY_DESC queryDesc;
  std::mutex mutex;
  bool wasIssued = false;
  bool needsFlush = false;
  uint64_t flushesAtEnd = 0;
  int pollsBeforeDone = 0;
};

}  // namespace platform::d3d11
