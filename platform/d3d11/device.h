// A Direct3D 11 device of the software GPU, with its DXGI and video faces in the same object.
// It keeps its adapter and its one immediate context.
#pragma once

#include "d3d11_1.h"
#include "dxgi1_2.h"
#include "platform/core/com_object.h"
#include "platform/core/private_data.h"
#include "platform/dxgi/dxgi_objects.h"

namespace platform::d3d11 {

class Context;

class Device final : public ID3D11Device1, public IDXGIDevice1, public ID3D11VideoDevice, public ComObject {
 public:
  Device(dxgi::Adapter* adapter, D3D_FEATURE_LEVEL featureLevel, UINT creationFlags);
  PLATFORM_IUNKNOWN_METHODS

  // ID3D11Device
  HRESULT STDMETHODCALLTYPE CreateTexture2D(const D3D11_TEXTURE2D_DESC* pDesc,
                                            const D3D11_SUBRESOURCE_DATA* pInitialData,
                                            ID3D11Texture2D** ppTexture2D) override;
  HRESULT STDMETHODCALLTYPE CreateQuery(const D3D11_QUERY_DESC* pQueryDesc, ID3D11Query** ppQuery) override;
  HRESULT STDMETHODCALLTYPE OpenSharedResource(HANDLE hResource, REFIID ReturnedInterface,
                                               void** ppResource) override;
  HRESULT STDMETHODCALLTYPE CheckFormatSupport(DXGI_FORMAT Format, UINT* pFormatSupport) override;
  HRESULT STDMETHODCALLTYPE CheckMultisampleQualityLevels(DXGI_FORMAT Format, UINT SampleCount,
                                                          UINT* pNumQualityLevels) override;
  HRESULT STDMETHODCALLTYPE CheckFeatureSupport(D3D11_FEATURE Feature, void* pFeatureSupportData,
                                                UINT FeatureSupportDataSize) override;
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID guid, UINT* pDataSize, void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID guid, UINT DataSize, const void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID guid, const IUnknown* pData) override;
  D3D_FEATURE_LEVEL STDMETHODCALLTYPE GetFeatureLevel() override;
  UINT STDMETHODCALLTYPE GetCreationFlags() override;
  HRESULT STDMETHODCALLTYPE GetDeviceRemovedReason() override;
  void STDMETHODCALLTYPE GetImmediateContext(ID3D11DeviceContext** ppImmediateContext) override;
  HRESULT STDMETHODCALLTYPE SetExceptionMode(UINT RaiseFlags) override;
  UINT STDMETHODCALLTYPE GetExceptionMode() override;

  // ID3D11Device1
  void STDMETHODCALLTYPE GetImmediateContext1(ID3D11DeviceContext1** ppImmediateContext) override;
  HRESULT STDMETHODCALLTYPE CreateDeviceContextState(UINT Flags, const D3D_FEATURE_LEVEL* pFeatureLevels,
                                                     UINT FeatureLevels, UINT SDKVersion, REFIID EmulatedInterface,
                                                     D3D_FEATURE_LEVEL* pChosenFeatureLevel,
                                                     ID3DDeviceContextState** ppContextState) override;
  HRESULT STDMETHODCALLTYPE OpenSharedResource1(HANDLE hResource, REFIID returnedInterface,
                                                void** ppResource) override;
  HRESULT STDMETHODCALLTYPE OpenSharedResourceByName(LPCWSTR lpName, DWORD dwDesiredAccess,
                                                     REFIID returnedInterface, void** ppResource) override;

  // IDXGIObject, IDXGIDevice, IDXGIDevice1 (the private data methods are shared with Direct3D)
  HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;
  HRESULT STDMETHODCALLTYPE GetAdapter(IDXGIAdapter** pAdapter) override;
  HRESULT STDMETHODCALLTYPE CreateSurface(const DXGI_SURFACE_DESC* pDesc, UINT NumSurfaces, DXGI_USAGE Usage,
                                          const DXGI_SHARED_RESOURCE* pSharedResource,
                                          IDXGISurface** ppSurface) override;
  HRESULT STDMETHODCALLTYPE QueryResourceResidency(IUnknown* const* ppResources, DXGI_RESIDENCY* pResidencyStatus,
                                                   UINT NumResources) override;
  HRESULT STDMETHODCALLTYPE SetGPUThreadPriority(INT Priority) override;
  HRESULT STDMETHODCALLTYPE GetGPUThreadPriority(INT* pPriority) override;
  HRESULT STDMETHODCALLTYPE SetMaximumFrameLatency(UINT MaxLatency) override;
  HRESULT STDMETHODCALLTYPE GetMaximumFrameLatency(UINT* pMaxLatency) override;

  // ID3D11VideoDevice
  HRESULT STDMETHODCALLTYPE CreateVideoProcessor(ID3D11VideoProcessorEnumerator* pEnum, UINT RateConversionIndex,
                                                 ID3D11VideoProcessor** ppVideoProcessor) override;
  HRESULT STDMETHODCALLTYPE CreateVideoProcessorInputView(ID3D11Resource* pResource,
                                                          ID3D11VideoProcessorEnumerator* pEnum,
                                                          const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc,
                                                          ID3D11VideoProcessorInputView** ppVIView) override;
  HRESULT STDMETHODCALLTYPE CreateVideoProcessorOutputView(ID3D11Resource* pResource,
                                                           ID3D11VideoProcessorEnumerator* pEnum,
                                                           const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc,
                                                           ID3D11VideoProcessorOutputView** ppVPOView) override;
  HRESULT STDMETHODCALLTYPE CreateVideoProcessorEnumerator(const D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc,
                                                           ID3D11VideoProcessorEnumerator** ppEnum) override;
  UINT STDMETHODCALLTYPE GetVideoDecoderProfileCount() override;
  HRESULT STDMETHODCALLTYPE GetVideoDecoderProfile(UINT Index, GUID* pDecoderProfile) override;
  HRESULT STDMETHODCALLTYPE CheckVideoDecoderFormat(const GUID* pDecoderProfile, DXGI_FORMAT Format,
                                                    BOOL* pSupported) override;

  // Makes the immediate context; called once, right after construction.
  void start();
  Context* immediateContext() const { return immediate.get(); }
  dxgi::Adapter* adapter() const { return owningAdapter.get(); }
  // The device behind an application's pointer to any of its interfaces; null for others.
  static Device* from(IUnknown* object);

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;
  HRESULT openShared(const char* call, HANDLE handle, bool ntHandle, REFIID riid, void** ppResource);

  Pin<dxgi::Adapter> owningAdapter;
  Pin<Context> immediate;
  const D3D_FEATURE_LEVEL featureLevel;
  const UINT creationFlags;
  PrivateData privateData;
  std::atomic<UINT> maximumFrameLatency{3};
  std::atomic<INT> gpuThreadPriority{0};
};

}  // namespace platform::d3d11
