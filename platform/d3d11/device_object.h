// What every object made by a device shares: the ID3D11DeviceChild methods, its private data,
// and a pin on the device, so that the device lives while anything made on it does.
#pragma once

#include "d3d11.h"
#include "platform/core/com_object.h"
#include "platform/core/private_data.h"

namespace platform::d3d11 {

class Device;

class DeviceObject : public ComObject {
 public:
  Device* device() const { return owner; }
  // For an object passed as an argument: true when it may be used, else the debug layer hears
  // of `call` using a released object.
  bool usableIn(const char* call) const;

 protected:
  // `pinsDevice` is false for the immediate context, which the device itself keeps.
  DeviceObject(const char* interfaceName, Device* device, bool pinsDevice = true);
  // Derived classes call this from releaseResources.
  void releaseDeviceObject();

  void childGetDevice(ID3D11Device** ppDevice);
  HRESULT childGetPrivateData(REFGUID guid, UINT* pDataSize, void* pData);
  HRESULT childSetPrivateData(REFGUID guid, UINT DataSize, const void* pData);
  HRESULT childSetPrivateDataInterface(REFGUID guid, const IUnknown* pData);
  // The same store for the object's DXGI face, whose calls have gates of their own.
  PrivateData& privateStore() { return privateData; }

 private:
  Device* const owner;
  const bool pinned;
  PrivateData privateData;
};

}  // namespace platform::d3d11

#define PLATFORM_DEVICE_CHILD_METHODS                                                                   \
  void STDMETHODCALLTYPE GetDevice(ID3D11Device** ppDevice) override { childGetDevice(ppDevice); }     \
  HRESULT STDMETHODCALLTYPE GetPrivateData(REFGUID guid, UINT* pDataSize, void* pData) override {      \
    return childGetPrivateData(guid, pDataSize, pData);                                                \
  }                                                                                                    \
  HRESULT STDMETHODCALLTYPE SetPrivateData(REFGUID guid, UINT DataSize, const void* pData) override {  \
    return childSetPrivateData(guid, DataSize, pData);                                                 \
  }                                                                                                    \
  HRESULT STDMETHODCALLTYPE SetPrivateDataInterface(REFGUID guid, const IUnknown* pData) override {    \
    return childSetPrivateDataInterface(guid, pData);                                                  \
  }
