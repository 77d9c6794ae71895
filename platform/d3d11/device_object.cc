#include "platform/d3d11/device_object.h"

#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/device.h"

namespace platform::d3d11 {

DeviceObject::DeviceObject(const char* interfaceName, Device* device, bool pinsDevice)
    : ComObject(interfaceName), owner(device), pinned(pinsDevice) {
  if (pinned) owner->pin();
}

void DeviceObject::releaseDeviceObject() {
  privateData.clear();
  if (pinned) owner->unpin();
}

bool DeviceObject::usableIn(const char* call) const {
  if (callable()) return true;
  debugLayerViolation(std::string(call) + ": an argument is a " + name() + " after its final Release");
  return false;
}

void DeviceObject::childGetDevice(ID3D11Device** ppDevice) {
  if (ppDevice != nullptr) *ppDevice = nullptr;
  if (!enterVoid("ID3D11DeviceChild::GetDevice") || ppDevice == nullptr) return;
  handOut(owner, ppDevice);
}

HRESULT DeviceObject::childGetPrivateData(REFGUID guid, UINT* pDataSize, void* pData) {
  if (HRESULT hr = enter("ID3D11DeviceChild::GetPrivateData"); hr != S_OK) return hr;
  return privateData.get(guid, pDataSize, pData);
}

HRESULT DeviceObject::childSetPrivateData(REFGUID guid, UINT DataSize, const void* pData) {
  if (HRESULT hr = enter("ID3D11DeviceChild::SetPrivateData"); hr != S_OK) return hr;
  return privateData.set(guid, DataSize, pData);
}

HRESULT DeviceObject::childSetPrivateDataInterface(REFGUID guid, const IUnknown* pData) {
  if (HRESULT hr = enter("ID3D11DeviceChild::SetPrivateDataInterface"); hr != S_OK) return hr;
  return privateData.setInterface(guid, pData);
}

}  // namespace platform::d3d11
