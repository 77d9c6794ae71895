// The device's DXGI face: its adapter, residency, priorities.
#include "platform/d3d11/device.h"

namespace platform::d3d11 {

HRESULT Device::GetParent(REFIID riid, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  if (ppParent == nullptr) return DXGI_ERROR_INVALID_CALL;
  return owningAdapter->answerAs(riid, ppParent);
}

HRESULT Device::GetAdapter(IDXGIAdapter** pAdapter) {
  if (pAdapter != nullptr) *pAdapter = nullptr;
  if (HRESULT hr = enter("IDXGIDevice::GetAdapter"); hr != S_OK) return hr;
  if (pAdapter == nullptr) return DXGI_ERROR_INVALID_CALL;
  handOut(owningAdapter.get(), pAdapter);
  return S_OK;
}

HRESULT Device::CreateSurface(const DXGI_SURFACE_DESC*, UINT, DXGI_USAGE, const DXGI_SHARED_RESOURCE*,
                              IDXGISurface** ppSurface) {
  if (ppSurface != nullptr) *ppSurface = nullptr;
  if (HRESULT hr = enter("IDXGIDevice::CreateSurface"); hr != S_OK) return hr;
  return E_NOTIMPL;  // textures are made through CreateTexture2D
}

HRESULT Device::QueryResourceResidency(IUnknown* const* ppResources, DXGI_RESIDENCY* pResidencyStatus,
                                       UINT NumResources) {
  if (HRESULT hr = enter("IDXGIDevice::QueryResourceResidency"); hr != S_OK) return hr;
  if (ppResources == nullptr || pResidencyStatus == nullptr) return E_INVALIDARG;
  for (UINT i = 0; i < NumResources; ++i) pResidencyStatus[i] = DXGI_RESIDENCY_FULLY_RESIDENT;
  return S_OK;
}

HRESULT Device::SetGPUThreadPriority(INT Priority) {
  if (HRESULT hr = enter("IDXGIDevice::SetGPUThreadPriority"); hr != S_OK) return hr;
  if (Priority < -7 || Priority > 7) return E_INVALIDARG;
  gpuThreadPriority.store(Priority);
  return S_OK;
}

HRESULT Device::GetGPUThreadPriority(INT* pPriority) {
  if (HRESULT hr = enter("IDXGIDevice::GetGPUThreadPriority"); hr != S_OK) return hr;
  if (pPriority == nullptr) return E_INVALIDARG;
  *pPriority = gpuThreadPriority.load();
  return S_OK;
}

HRESULT Device::SetMaximumFrameLatency(UINT MaxLatency) {
  if (HRESULT hr = enter("IDXGIDevice1::SetMaximumFrameLatency"); hr != S_OK) return hr;
  if (MaxLatency > 16) return DXGI_ERROR_INVALID_CALL;
  maximumFrameLatency.store(MaxLatency == 0 ? 3 : MaxLatency);  // 0 restores the default
  return S_OK;
}

HRESULT Device::GetMaximumFrameLatency(UINT* pMaxLatency) {
  if (HRESULT hr = enter("IDXGIDevice1::GetMaximumFrameLatency"); hr != S_OK) return hr;
  if (pMaxLatency == nullptr) return DXGI_ERROR_INVALID_CALL;
  *pMaxLatency = maximumFrameLatency.load();
  return S_OK;
}

}  // namespace platform::d3d11
