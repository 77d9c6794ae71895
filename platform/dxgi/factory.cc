// The DXGI factory and the functions that make one.
#include "platform/core/call_gate.h"
#include "platform/dxgi/dxgi_objects.h"

namespace platform::dxgi {

Factory::Factory(MachineSnapshot machineSnapshot) : ComObject("IDXGIFactory1"), snapshot(std::move(machineSnapshot)) {}

void* Factory::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IDXGIObject || riid == IID_IDXGIFactory || riid == IID_IDXGIFactory1)
    return static_cast<IDXGIFactory1*>(this);
  return nullptr;
}

HRESULT Factory::SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(Name, DataSize, pData);
}

HRESULT Factory::SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(Name, pUnknown);
}

HRESULT Factory::GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("IDXGIObject::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(Name, pDataSize, pData);
}

HRESULT Factory::GetParent(REFIID, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  return E_NOINTERFACE;  // a factory has no parent
}

Adapter* Factory::makeAdapter(UINT index) {
  if (index >= snapshot.machine.adapters.size()) return nullptr;
  return new Adapter(this, index);
}

HRESULT Factory::EnumAdapters(UINT Adapter, IDXGIAdapter** ppAdapter) {
  if (ppAdapter != nullptr) *ppAdapter = nullptr;
  if (HRESULT hr = enter("IDXGIFactory::EnumAdapters"); hr != S_OK) return hr;
  if (ppAdapter == nullptr) return DXGI_ERROR_INVALID_CALL;
  class Adapter* adapter = makeAdapter(Adapter);
  if (adapter == nullptr) return DXGI_ERROR_NOT_FOUND;
  handOut(adapter, ppAdapter);
  return S_OK;
}

HRESULT Factory::EnumAdapters1(UINT Adapter, IDXGIAdapter1** ppAdapter) {
  if (ppAdapter != nullptr) *ppAdapter = nullptr;
  if (HRESULT hr = enter("IDXGIFactory1::EnumAdapters1"); hr != S_OK) return hr;
  if (ppAdapter == nullptr) return DXGI_ERROR_INVALID_CALL;
  class Adapter* adapter = makeAdapter(Adapter);
  if (adapter == nullptr) return DXGI_ERROR_NOT_FOUND;
  handOut(adapter, ppAdapter);
  return S_OK;
}

HRESULT Factory::MakeWindowAssociation(HWND WindowHandle, UINT) {
  if (HRESULT hr = enter("IDXGIFactory::MakeWindowAssociation"); hr != S_OK) return hr;
  window = WindowHandle;
  return S_OK;
}

HRESULT Factory::GetWindowAssociation(HWND* pWindowHandle) {
  if (HRESULT hr = enter("IDXGIFactory::GetWindowAssociation"); hr != S_OK) return hr;
  if (pWindowHandle == nullptr) return DXGI_ERROR_INVALID_CALL;
  *pWindowHandle = window;
  return S_OK;
}

HRESULT Factory::CreateSwapChain(IUnknown*, DXGI_SWAP_CHAIN_DESC*, IDXGISwapChain** ppSwapChain) {
  if (ppSwapChain != nullptr) *ppSwapChain = nullptr;
  if (HRESULT hr = enter("IDXGIFactory::CreateSwapChain"); hr != S_OK) return hr;
  return E_NOTIMPL;  // nothing is presented on this machine
}

HRESULT Factory::CreateSoftwareAdapter(HMODULE, IDXGIAdapter** ppAdapter) {
  if (ppAdapter != nullptr) *ppAdapter = nullptr;
  if (HRESULT hr = enter("IDXGIFactory::CreateSoftwareAdapter"); hr != S_OK) return hr;
  return DXGI_ERROR_UNSUPPORTED;
}

BOOL Factory::IsCurrent() {
  if (!enterVoid("IDXGIFactory1::IsCurrent")) return FALSE;
  return machineSnapshot().generation == snapshot.generation ? TRUE : FALSE;
}

namespace {

HRESULT createFactory(const char* call, REFIID riid, void** ppFactory) {
  if (ppFactory != nullptr) *ppFactory = nullptr;
  if (HRESULT planned = plannedHresult(call); planned != S_OK) return planned;
  if (ppFactory == nullptr) return DXGI_ERROR_INVALID_CALL;
  return answerNew(new Factory(machineSnapshot()), riid, ppFactory);
}

}  // namespace
}  // namespace platform::dxgi

HRESULT WINAPI CreateDXGIFactory(REFIID riid, void** ppFactory) {
  return platform::dxgi::createFactory("CreateDXGIFactory", riid, ppFactory);
}

HRESULT WINAPI CreateDXGIFactory1(REFIID riid, void** ppFactory) {
  return platform::dxgi::createFactory("CreateDXGIFactory1", riid, ppFactory);
}
