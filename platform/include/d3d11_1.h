// Direct3D 11.1: the device that opens resources shared by NT handle, and its context.
#pragma once

#include "d3d11.h"
#include "dxgi1_2.h"

typedef enum D3D11_COPY_FLAGS {
  D3D11_COPY_NO_OVERWRITE = 0x1,
  D3D11_COPY_DISCARD = 0x2
} D3D11_COPY_FLAGS;

struct ID3D11DeviceContext1;
struct ID3DDeviceContextState;  // not served by the platform

MIDL_INTERFACE("bb2c6faa-b5fb-4082-8e6b-388b8cfa90e1")
ID3D11DeviceContext1 : public ID3D11DeviceContext {
  virtual void STDMETHODCALLTYPE CopySubresourceRegion1(ID3D11Resource* pDstResource, UINT DstSubresource, UINT DstX,
                                                        UINT DstY, UINT DstZ, ID3D11Resource* pSrcResource,
                                                        UINT SrcSubresource, const D3D11_BOX* pSrcBox,
                                                        UINT CopyFlags) = 0;
  virtual void STDMETHODCALLTYPE UpdateSubresource1(ID3D11Resource* pDstResource, UINT DstSubresource,
                                                    const D3D11_BOX* pDstBox, const void* pSrcData, UINT SrcRowPitch,
                                                    UINT SrcDepthPitch, UINT CopyFlags) = 0;
  virtual void STDMETHODCALLTYPE DiscardResource(ID3D11Resource* pResource) = 0;
  virtual void STDMETHODCALLTYPE DiscardView(ID3D11View* pResourceView) = 0;
};
__CRT_UUID_DECL(ID3D11DeviceContext1, 0xBB2C6FAA, 0xB5FB, 0x4082, 0x8E, 0x6B, 0x38, 0x8B, 0x8C, 0xFA, 0x90, 0xE1)
DEFINE_GUID(IID_ID3D11DeviceContext1, 0xBB2C6FAA, 0xB5FB, 0x4082, 0x8E, 0x6B, 0x38, 0x8B, 0x8C, 0xFA, 0x90, 0xE1);

MIDL_INTERFACE("a04bfb29-08ef-43d6-a49c-a9bdbdcbe686")
ID3D11Device1 : public ID3D11Device {
  virtual void STDMETHODCALLTYPE GetImmediateContext1(ID3D11DeviceContext1** ppImmediateContext) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateDeviceContextState(UINT Flags, const D3D_FEATURE_LEVEL* pFeatureLevels,
                                                             UINT FeatureLevels, UINT SDKVersion,
                                                             REFIID EmulatedInterface,
                                                             D3D_FEATURE_LEVEL* pChosenFeatureLevel,
                                                             ID3DDeviceContextState** ppContextState) = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenSharedResource1(HANDLE hResource, REFIID returnedInterface,
                                                        void** ppResource) = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenSharedResourceByName(LPCWSTR lpName, DWORD dwDesiredAccess,
                                                             REFIID returnedInterface, void** ppResource) = 0;
};
__CRT_UUID_DECL(ID3D11Device1, 0xA04BFB29, 0x08EF, 0x43D6, 0xA4, 0x9C, 0xA9, 0xBD, 0xBD, 0xCB, 0xE6, 0x86)
DEFINE_GUID(IID_ID3D11Device1, 0xA04BFB29, 0x08EF, 0x43D6, 0xA4, 0x9C, 0xA9, 0xBD, 0xBD, 0xCB, 0xE6, 0x86);
