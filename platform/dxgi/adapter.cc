// A DXGI adapter: one GPU of the machine description.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "platform/dxgi/dxgi_objects.h"

namespace platform::dxgi {
namespace {

constexpr const wchar_t* kDefaultDescription = L"Software Display Adapter";
constexpr SIZE_T kDedicatedVideoMemory = SIZE_T(4) << 30;
constexpr SIZE_T kSharedSystemMemory = SIZE_T(8) << 30;

}  // namespace

Adapter::Adapter(Factory* parentFactory, UINT index)
    : ComObject("IDXGIAdapter1"), factory(parentFactory), adapterIndex(index) {}

void* Adapter::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_IDXGIObject || riid == IID_IDXGIAdapter || riid == IID_IDXGIAdapter1)
    return static_cast<IDXGIAdapter1*>(this);
  return nullptr;
}

void Adapter::releaseResources() {
  privateData.clear();
  factory.reset();
}

const control::AdapterDescription& Adapter::description() const {
  return factory->machine().machine.adapters[adapterIndex];
}

LUID Adapter::luid() const { return adapterLuid(factory->machine().generation, adapterIndex); }

HRESULT Adapter::SetPrivateData(REFGUID Name, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(Name, DataSize, pData);
}

HRESULT Adapter::SetPrivateDataInterface(REFGUID Name, const IUnknown* pUnknown) {
  if (HRESULT hr = enter("IDXGIObject::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(Name, pUnknown);
}

HRESULT Adapter::GetPrivateData(REFGUID Name, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("IDXGIObject::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(Name, pDataSize, pData);
}

HRESULT Adapter::GetParent(REFIID riid, void** ppParent) {
  if (ppParent != nullptr) *ppParent = nullptr;
  if (HRESULT hr = enter("IDXGIObject::GetParent"); hr != S_OK) return hr;
  if (ppParent == nullptr) return DXGI_ERROR_INVALID_CALL;
  return factory->answerAs(riid, ppParent);
}

HRESULT Adapter::EnumOutputs(UINT Output, IDXGIOutput** ppOutput) {
  if (ppOutput != nullptr) *ppOutput = nullptr;
  if (HRESULT hr = enter("IDXGIAdapter::EnumOutputs"); hr != S_OK) return hr;
  if (ppOutput == nullptr) return E_INVALIDARG;
  if (Output >= description().outputs.size()) return DXGI_ERROR_NOT_FOUND;
  handOut(new class Output(this, Output), ppOutput);
  return S_OK;
}

void Adapter::fillDesc1(DXGI_ADAPTER_DESC1* desc) const {
  *desc = {};
  const control::AdapterDescription& adapter = description();
  const std::wstring& text = adapter.description.empty() ? std::wstring(kDefaultDescription) : adapter.description;
  size_t length = std::min<size_t>(text.size(), std::size(desc->Description) - 1);
  std::wmemcpy(desc->Description, text.data(), length);
  desc->Description[length] = L'\0';
  desc->VendorId = adapter.vendorId;
  desc->DeviceId = adapter.deviceId;
  desc->DedicatedVideoMemory = kDedicatedVideoMemory;
  desc->SharedSystemMemory = kSharedSystemMemory;
  desc->AdapterLuid = luid();
  desc->Flags = DXGI_ADAPTER_FLAG_NONE;
}

HRESULT Adapter::GetDesc(DXGI_ADAPTER_DESC* pDesc) {
  if (HRESULT hr = enter("IDXGIAdapter::GetDesc"); hr != S_OK) return hr;
  if (pDesc == nullptr) return E_INVALIDARG;
  DXGI_ADAPTER_DESC1 full;
  fillDesc1(&full);
  static_assert(sizeof(DXGI_ADAPTER_DESC) <= sizeof(DXGI_ADAPTER_DESC1));
  std::memcpy(pDesc, &full, sizeof(DXGI_ADAPTER_DESC));  // DESC1 is DESC with Flags appended
  return S_OK;
}

HRESULT Adapter::GetDesc1(DXGI_ADAPTER_DESC1* pDesc) {
  if (HRESULT hr = enter("IDXGIAdapter1::GetDesc1"); hr != S_OK) return hr;
  if (pDesc == nullptr) return E_INVALIDARG;
  fillDesc1(pDesc);
  return S_OK;
}

HRESULT Adapter::CheckInterfaceSupport(REFGUID, LARGE_INTEGER* pUMDVersion) {
  if (HRESULT hr = enter("IDXGIAdapter::CheckInterfaceSupport"); hr != S_OK) return hr;
  if (pUMDVersion != nullptr) pUMDVersion->QuadPart = 0;
  return DXGI_ERROR_UNSUPPORTED;  // it answers for Direct3D 10 only, which this machine lacks
}

}  // namespace platform::dxgi
