// The device: resource creation, sharing, and what it tells about itself.
#include "platform/d3d11/device.h"

#include "platform/d3d11/context.h"
#include "platform/d3d11/query.h"
#include "platform/d3d11/texture.h"
#include "platform/d3d11/texture_desc.h"

namespace platform::d3d11 {

Device::Device(dxgi::Adapter* adapter, D3D_FEATURE_LEVEL level, UINT flags)
    : ComObject("ID3D11Device"), owningAdapter(adapter), featureLevel(level), creationFlags(flags) {}

void Device::start() { immediate.reset(new Context(this)); }

Device* Device::from(IUnknown* object) { return object == nullptr ? nullptr : dynamic_cast<Device*>(object); }

void* Device::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11Device || riid == IID_ID3D11Device1)
    return static_cast<ID3D11Device1*>(this);
  if (riid == IID_IDXGIObject || riid == IID_IDXGIDevice || riid == IID_IDXGIDevice1)
    return static_cast<IDXGIDevice1*>(this);
  if (riid == IID_ID3D11VideoDevice) return static_cast<ID3D11VideoDevice*>(this);
  return nullptr;
}

void Device::releaseResources() {
  immediate.reset();
  privateData.clear();
  owningAdapter.reset();
}

HRESULT Device::CreateTexture2D(const D3D11_TEXTURE2D_DESC* pDesc, const D3D11_SUBRESOURCE_DATA* pInitialData,
                                ID3D11Texture2D** ppTexture2D) {
  if (ppTexture2D != nullptr) *ppTexture2D = nullptr;
  if (HRESULT hr = enter("ID3D11Device::CreateTexture2D"); hr != S_OK) return hr;
  if (pDesc == nullptr) return E_INVALIDARG;
  if (HRESULT hr = validateTextureDesc(*pDesc, pInitialData); hr != S_OK) return hr;
  if (ppTexture2D == nullptr) return S_FALSE;  // the description was checked, nothing made
  auto store = std::make_shared<PixelStore>(*pDesc, layoutFor(pDesc->Format, pDesc->Width, pDesc->Height));
  if (pInitialData != nullptr) fillInitialData(*store, *pInitialData);
  handOut(new Texture(this, std::move(store)), ppTexture2D);
  return S_OK;
}

HRESULT Device::CreateQuery(const D3D11_QUERY_DESC* pQueryDesc, ID3D11Query** ppQuery) {
  if (ppQuery != nullptr) *ppQuery = nullptr;
  if (HRESULT hr = enter("ID3D11Device::CreateQuery"); hr != S_OK) return hr;
  if (pQueryDesc == nullptr) return E_INVALIDARG;
  if (pQueryDesc->Query != D3D11_QUERY_EVENT) return E_NOTIMPL;  // the event query is all the system asks
  if (pQueryDesc->MiscFlags != 0) return E_INVALIDARG;
  if (ppQuery == nullptr) return S_FALSE;
  handOut(new Query(this, *pQueryDesc), ppQuery);
  return S_OK;
}

HRESULT Device::openShared(const char* call, HANDLE handle, bool ntHandle, REFIID riid, void** ppResource) {
  if (ppResource != nullptr) *ppResource = nullptr;
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  if (ppResource == nullptr) return E_INVALIDARG;
  std::shared_ptr<PixelStore> store;
  if (ntHandle) {
    auto shared = std::dynamic_pointer_cast<SharedTextureObject>(objectFromHandle(handle));
    if (shared != nullptr) store = shared->store;
  } else {
    store = storeFromLegacyHandle(handle);
  }
  if (store == nullptr) return E_INVALIDARG;
  return answerNew(new Texture(this, std::move(store)), riid, ppResource);
}

HRESULT Device::OpenSharedResource(HANDLE hResource, REFIID ReturnedInterface, void** ppResource) {
  return openShared("ID3D11Device::OpenSharedResource", hResource, false, ReturnedInterface, ppResource);
}

HRESULT Device::OpenSharedResource1(HANDLE hResource, REFIID returnedInterface, void** ppResource) {
  return openShared("ID3D11Device1::OpenSharedResource1", hResource, true, returnedInterface, ppResource);
}

HRESULT Device::OpenSharedResourceByName(LPCWSTR, DWORD, REFIID, void** ppResource) {
  if (ppResource != nullptr) *ppResource = nullptr;
  if (HRESULT hr = enter("ID3D11Device1::OpenSharedResourceByName"); hr != S_OK) return hr;
  return E_NOTIMPL;  // resources are shared by handle only on this machine
}

HRESULT Device::CheckFormatSupport(DXGI_FORMAT Format, UINT* pFormatSupport) {
  if (HRESULT hr = enter("ID3D11Device::CheckFormatSupport"); hr != S_OK) return hr;
  if (pFormatSupport == nullptr) return E_INVALIDARG;
  *pFormatSupport = formatSupport(Format);
  return *pFormatSupport != 0 ? S_OK : E_FAIL;
}

HRESULT Device::CheckMultisampleQualityLevels(DXGI_FORMAT Format, UINT SampleCount, UINT* pNumQualityLevels) {
  if (HRESULT hr = enter("ID3D11Device::CheckMultisampleQualityLevels"); hr != S_OK) return hr;
  if (pNumQualityLevels == nullptr) return E_INVALIDARG;
  *pNumQualityLevels = SampleCount == 1 && formatSupport(Format) != 0 ? 1 : 0;
  return S_OK;
}

HRESULT Device::CheckFeatureSupport(D3D11_FEATURE Feature, void* pFeatureSupportData, UINT FeatureSupportDataSize) {
  if (HRESULT hr = enter("ID3D11Device::CheckFeatureSupport"); hr != S_OK) return hr;
  if (pFeatureSupportData == nullptr) return E_INVALIDARG;
  if (Feature == D3D11_FEATURE_THREADING) {
    if (FeatureSupportDataSize != sizeof(D3D11_FEATURE_DATA_THREADING)) return E_INVALIDARG;
    *static_cast<D3D11_FEATURE_DATA_THREADING*>(pFeatureSupportData) = {TRUE, FALSE};
    return S_OK;
  }
  if (Feature == D3D11_FEATURE_FORMAT_SUPPORT) {
    if (FeatureSupportDataSize != sizeof(D3D11_FEATURE_DATA_FORMAT_SUPPORT)) return E_INVALIDARG;
    auto* data = static_cast<D3D11_FEATURE_DATA_FORMAT_SUPPORT*>(pFeatureSupportData);
    data->OutFormatSupport = formatSupport(data->InFormat);
    return data->OutFormatSupport != 0 ? S_OK : E_FAIL;
  }
  return E_INVALIDARG;
}

HRESULT Device::GetPrivateData(REFGUID guid, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("ID3D11Device::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(guid, pDataSize, pData);
}

HRESULT Device::SetPrivateData(REFGUID guid, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("ID3D11Device::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(guid, DataSize, pData);
}

HRESULT Device::SetPrivateDataInterface(REFGUID guid, const IUnknown* pData) {
  if (HRESULT hr = enter("ID3D11Device::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(guid, pData);
}

D3D_FEATURE_LEVEL Device::GetFeatureLevel() {
  enterVoid("ID3D11Device::GetFeatureLevel");
  return featureLevel;
}

UINT Device::GetCreationFlags() {
  enterVoid("ID3D11Device::GetCreationFlags");
  return creationFlags;
}

HRESULT Device::GetDeviceRemovedReason() {
  if (HRESULT hr = enter("ID3D11Device::GetDeviceRemovedReason"); hr != S_OK) return hr;
  return S_OK;
}

void Device::GetImmediateContext(ID3D11DeviceContext** ppImmediateContext) {
  if (ppImmediateContext != nullptr) *ppImmediateContext = nullptr;
  if (!enterVoid("ID3D11Device::GetImmediateContext") || ppImmediateContext == nullptr) return;
  handOut(immediate.get(), ppImmediateContext);
}

void Device::GetImmediateContext1(ID3D11DeviceContext1** ppImmediateContext) {
  if (ppImmediateContext != nullptr) *ppImmediateContext = nullptr;
  if (!enterVoid("ID3D11Device1::GetImmediateContext1") || ppImmediateContext == nullptr) return;
  handOut(immediate.get(), ppImmediateContext);
}

HRESULT Device::SetExceptionMode(UINT) {
  if (HRESULT hr = enter("ID3D11Device::SetExceptionMode"); hr != S_OK) return hr;
  return S_OK;
}

UINT Device::GetExceptionMode() {
  enterVoid("ID3D11Device::GetExceptionMode");
  return 0;
}

HRESULT Device::CreateDeviceContextState(UINT, const D3D_FEATURE_LEVEL*, UINT, UINT, REFIID, D3D_FEATURE_LEVEL*,
                                         ID3DDeviceContextState** ppContextState) {
  if (ppContextState != nullptr) *ppContextState = nullptr;
  if (HRESULT hr = enter("ID3D11Device1::CreateDeviceContextState"); hr != S_OK) return hr;
  return E_NOTIMPL;
}

}  // namespace platform::d3d11
