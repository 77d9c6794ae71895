// DXGI's objects: the factory (a snapshot of the machine), its adapters and their outputs.
#pragma once

#include "dxgi1_2.h"
#include "platform/core/com_object.h"
#include "platform/core/private_data.h"
#include "platform/dxgi/machine.h"

namespace platform::dxgi {

class Factory final : public IDXGIFactory1, public ComObject {
 public:
  explicit Factory(MachineSnapshot snapshot);
  PLATFORM_IUNKNOWN_METHODS

  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) override;
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) override;
  HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;

  HRESULT STDMETHODCALLTYPE EnumAdapters(UINT Adapter, IDXGIAdapter** ppAdapter) override;
  HRESULT STDMETHODCALLTYPE MakeWindowAssociation(HWND WindowHandle, UINT Flags) override;
  HRESULT STDMETHODCALLTYPE GetWindowAssociation(HWND* pWindowHandle) override;
  HRESULT STDMETHODCALLTYPE CreateSwapChain(IUnknown* pDevice, DXGI_SWAP_CHAIN_DESC* pDesc,
                                            IDXGISwapChain** ppSwapChain) override;
  HRESULT STDMETHODCALLTYPE CreateSoftwareAdapter(HMODULE Module, IDXGIAdapter** ppAdapter) override;

  HRESULT STDMETHODCALLTYPE EnumAdapters1(UINT Adapter, IDXGIAdapter1** ppAdapter) override;
  BOOL STDMETHODCALLTYPE IsCurrent() override;

  const MachineSnapshot& machine() const { return snapshot; }
  // A new adapter object for adapter `index`, without references; null past the last one.
  class Adapter* makeAdapter(UINT index);

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override { privateData.clear(); }

  const MachineSnapshot snapshot;
  PrivateData privateData;
  HWND window = nullptr;
};

class Adapter final : public IDXGIAdapter1, public ComObject {
 public:
  Adapter(Factory* factory, UINT index);
  PLATFORM_IUNKNOWN_METHODS

  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) override;
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) override;
  HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;

  HRESULT STDMETHODCALLTYPE EnumOutputs(UINT Output, IDXGIOutput** ppOutput) override;
  HRESULT STDMETHODCALLTYPE GetDesc(DXGI_ADAPTER_DESC* pDesc) override;
  HRESULT STDMETHODCALLTYPE CheckInterfaceSupport(REFGUID InterfaceName, LARGE_INTEGER* pUMDVersion) override;
  HRESULT STDMETHODCALLTYPE GetDesc1(DXGI_ADAPTER_DESC1* pDesc) override;

  UINT index() const { return adapterIndex; }
  const control::AdapterDescription& description() const;
  LUID luid() const;
  // Usable as an argument: alive and still referenced by the application.
  bool callableAsArgument() const { return callable(); }

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;
  void fillDesc1(DXGI_ADAPTER_DESC1* desc) const;

  Pin<Factory> factory;
  const UINT adapterIndex;
  PrivateData privateData;
};

class Output final : public IDXGIOutput1, public ComObject {
 public:
  Output(Adapter* adapter, UINT index);
  PLATFORM_IUNKNOWN_METHODS

  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) override;
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) override;
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) override;
  HRESULT STDMETHODCALLTYPE GetParent(REFIID riid, void** ppParent) override;

  HRESULT STDMETHODCALLTYPE GetDesc(DXGI_OUTPUT_DESC* pDesc) override;
  HRESULT STDMETHODCALLTYPE GetDisplayModeList(DXGI_FORMAT EnumFormat, UINT Flags, UINT* pNumModes,
                                               DXGI_MODE_DESC* pDesc) override;
  HRESULT STDMETHODCALLTYPE FindClosestMatchingMode(const DXGI_MODE_DESC* pModeToMatch, DXGI_MODE_DESC* pClosestMatch,
                                                    IUnknown* pConcernedDevice) override;
  HRESULT STDMETHODCALLTYPE WaitForVBlank() override;
  HRESULT STDMETHODCALLTYPE TakeOwnership(IUnknown* pDevice, BOOL Exclusive) override;
  void STDMETHODCALLTYPE ReleaseOwnership() override;
  HRESULT STDMETHODCALLTYPE GetGammaControlCapabilities(DXGI_GAMMA_CONTROL_CAPABILITIES* pGammaCaps) override;
  HRESULT STDMETHODCALLTYPE SetGammaControl(const DXGI_GAMMA_CONTROL* pArray) override;
  HRESULT STDMETHODCALLTYPE GetGammaControl(DXGI_GAMMA_CONTROL* pArray) override;
  HRESULT STDMETHODCALLTYPE SetDisplaySurface(IDXGISurface* pScanoutSurface) override;
  HRESULT STDMETHODCALLTYPE GetDisplaySurfaceData(IDXGISurface* pDestination) override;
  HRESULT STDMETHODCALLTYPE GetFrameStatistics(DXGI_FRAME_STATISTICS* pStats) override;

  HRESULT STDMETHODCALLTYPE GetDisplayModeList1(DXGI_FORMAT EnumFormat, UINT Flags, UINT* pNumModes,
                                                DXGI_MODE_DESC1* pDesc) override;
  HRESULT STDMETHODCALLTYPE FindClosestMatchingMode1(const DXGI_MODE_DESC1* pModeToMatch,
                                                     DXGI_MODE_DESC1* pClosestMatch,
                                                     IUnknown* pConcernedDevice) override;
  HRESULT STDMETHODCALLTYPE GetDisplaySurfaceData1(IDXGIResource* pDestination) override;
  HRESULT STDMETHODCALLTYPE DuplicateOutput(IUnknown* pDevice, IDXGIOutputDuplication** ppOutputDuplication) override;

  Adapter* adapter() const { return parent.get(); }
  UINT index() const { return outputIndex; }
  // Counted across all adapters in enumeration order, from 0: \\.\DISPLAY1 is number 0.
  UINT desktopNumber() const;
  const control::OutputDescription& description() const;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;
  DXGI_MODE_DESC currentMode() const;

  Pin<Adapter> parent;
  const UINT outputIndex;
  PrivateData privateData;
};

// The outputs' refresh rate: 60 Hz.
constexpr UINT kRefreshNumerator = 60;

}  // namespace platform::dxgi
