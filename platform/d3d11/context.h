// The immediate context, with its video face in the same object.
//
// How work is queued: commands (copies, updates, video blits) run at once, on the calling
// thread, so that Map, which waits for the GPU anyway, sees every earlier copy. What a real GPU
// does not do is finish instantly, and code that ends an event query and looks once must not
// pass here either: an event query ended after commands were queued answers S_FALSE to the
// first GetData and S_OK to the next. With D3D11_ASYNC_GETDATA_DONOTFLUSH it stays S_FALSE
// until something flushes (Flush, or a GetData without that flag), as a driver that never
// submits the batch would leave it. Map with D3D11_MAP_FLAG_DO_NOT_WAIT on a texture that a copy
// wrote answers DXGI_ERROR_WAS_STILL_DRAWING once.
#pragma once

#include <atomic>

#include "d3d11_1.h"
#include "platform/d3d11/device_object.h"

namespace platform::d3d11 {

class Texture;

class Context final : public ID3D11DeviceContext1, public ID3D11VideoContext, public DeviceObject {
 public:
  explicit Context(Device* device);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  // ID3D11DeviceContext
  HRESULT STDMETHODCALLTYPE Map(ID3D11Resource* pResource, UINT Subresource, D3D11_MAP MapType, UINT MapFlags,
                                D3D11_MAPPED_SUBRESOURCE* pMappedResource) override;
  void STDMETHODCALLTYPE Unmap(ID3D11Resource* pResource, UINT Subresource) override;
  void STDMETHODCALLTYPE Begin(ID3D11Asynchronous* pAsync) override;
  void STDMETHODCALLTYPE End(ID3D11Asynchronous* pAsync) override;
  HRESULT STDMETHODCALLTYPE GetData(ID3D11Asynchronous* pAsync, void* pData, UINT DataSize,
                                    UINT GetDataFlags) override;
  void STDMETHODCALLTYPE CopySubresourceRegion(ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX, UINT DstY,
                                               UINT DstZ, ID3D11Resource* pSrcResource, UINT SrcSubresource,
                                               const D3D11_BOX* pSrcBox) override;
  void STDMETHODCALLTYPE CopyResource(ID3D11Resource* pDstResource, ID3D11Resource* pSrcResource) override;
  void STDMETHODCALLTYPE UpdateSubresource(ID3D11Resource* pDstResource, UINT DstSubresource, const D3D11_BOX* pDstBox,
                                           const void* pSrcData, UINT SrcRowPitch, UINT SrcDepthPitch) override;
  void STDMETHODCALLTYPE ClearState() override;
  void STDMETHODCALLTYPE Flush() override;
  D3D11_DEVICE_CONTEXT_TYPE STDMETHODCALLTYPE GetType() override;
  UINT STDMETHODCALLTYPE GetContextFlags() override;

  // ID3D11DeviceContext1
  void STDMETHODCALLTYPE CopySubresourceRegion1(ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX,
                                                UINT DstY, UINT DstZ, ID3D11Resource* pSrcResource,
                                                UINT SrcSubresource, const D3D11_BOX* pSrcBox,
                                                UINT CopyFlags) override;
  void STDMETHODCALLTYPE UpdateSubresource1(ID3D11Resource* pDstResource, UINT DstSubresource,
                                            const D3D11_BOX* pDstBox, const void* pSrcData, UINT SrcRowPitch,
                                            UINT SrcDepthPitch, UINT CopyFlags) override;
  void STDMETHODCALLTYPE DiscardResource(ID3D11Resource* pResource) override;
  void STDMETHODCALLTYPE DiscardView(ID3D11View* pResourceView) override;

#include "platform/d3d11/video_context_methods.inc"

  // A command ran: the next event query has something to wait for, and a flush something to hand on.
  void queued() {
    workSinceEnd.store(true);
    workSinceFlush.store(true);
  }
  // True when no command was queued since the last flush.
  bool flushed() const { return !workSinceFlush.load(); }

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override { releaseDeviceObject(); }
  void firstReference() override;
  void lastReference() override;
  bool callableWithoutReferences() const override;

  // The texture behind a resource argument when it is usable in `call`, else null (recorded).
  Texture* argument(const char* call, ID3D11Resource* resource);
  bool copyRegion(const char* call, Texture* dst, UINT dstX, UINT dstY, Texture* src, const D3D11_BOX& box);
  void update(const char* call, ID3D11Resource* pDstResource, UINT DstSubresource, const D3D11_BOX* pDstBox,
              const void* pSrcData, UINT SrcRowPitch);
  void copySubresourceRegion(const char* call, ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX,
                             UINT DstY, UINT DstZ, ID3D11Resource* pSrcResource, UINT SrcSubresource,
                             const D3D11_BOX* pSrcBox);

  std::atomic<bool> workSinceEnd{false};
  std::atomic<bool> workSinceFlush{false};
  std::atomic<uint64_t> flushes{0};
};

}  // namespace platform::d3d11
