// The DXGI device manager: shares one Direct3D 11 device between an application and the
// transforms it gives the manager to. ResetDevice binds the device, with the token the manager
// was made with; handles opened before a reset go stale.
#include <atomic>
#include <mutex>
#include <set>

#include "d3d11.h"
#include "mfapi.h"
#include "mferror.h"
#include "platform/core/call_gate.h"
#include "platform/core/com_object.h"
#include "platform/mf/transforms.h"

namespace platform::mf {
namespace {

// Windows hands out tokens no caller can guess; these differ per manager, which is what matters.
std::atomic<UINT> nextToken{0x5A17};

class DxgiDeviceManager final : public ComObject, public IMFDXGIDeviceManager {
 public:
  DxgiDeviceManager() : ComObject("IMFDXGIDeviceManager"), token(nextToken.fetch_add(0x101)) {}
  PLATFORM_IUNKNOWN_METHODS

  HRESULT STDMETHODCALLTYPE CloseDeviceHandle(HANDLE hDevice) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::CloseDeviceHandle"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    return handles.erase(hDevice) == 1 ? S_OK : E_HANDLE;
  }

  HRESULT STDMETHODCALLTYPE GetVideoService(HANDLE hDevice, REFIID riid, void** ppService) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::GetVideoService"); hr != S_OK) return hr;
    return withDevice(hDevice, riid, ppService);
  }

  // The device is free-threaded here, so a lock is only a checked hand-out.
  HRESULT STDMETHODCALLTYPE LockDevice(HANDLE hDevice, REFIID riid, void** ppUnkDevice, BOOL) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::LockDevice"); hr != S_OK) return hr;
    return withDevice(hDevice, riid, ppUnkDevice);
  }

  HRESULT STDMETHODCALLTYPE OpenDeviceHandle(HANDLE* phDevice) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::OpenDeviceHandle"); hr != S_OK) return hr;
    if (phDevice == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex);
    if (device == nullptr) return MF_E_DXGI_DEVICE_NOT_INITIALIZED;
    HANDLE handle = reinterpret_cast<HANDLE>(uintptr_t(++handleCount));
    handles.insert(handle);
    *phDevice = handle;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE ResetDevice(IUnknown* pUnkDevice, UINT resetToken) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::ResetDevice"); hr != S_OK) return hr;
    if (pUnkDevice == nullptr || resetToken != token) return E_INVALIDARG;
    ID3D11Device* next = nullptr;
    if (FAILED(pUnkDevice->QueryInterface(IID_ID3D11Device, reinterpret_cast<void**>(&next)))) return E_NOINTERFACE;
    ID3D11Device* old = nullptr;
    {
      std::lock_guard<std::mutex> lock(mutex);
      old = device;
      device = next;
      handles.clear();  // stale: their next use answers MF_E_DXGI_NEW_VIDEO_DEVICE on Windows
    }
    if (old != nullptr) old->Release();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE TestDevice(HANDLE hDevice) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::TestDevice"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    return handles.count(hDevice) == 1 ? S_OK : E_HANDLE;
  }

  HRESULT STDMETHODCALLTYPE UnlockDevice(HANDLE hDevice, BOOL) override {
    if (HRESULT hr = enter("IMFDXGIDeviceManager::UnlockDevice"); hr != S_OK) return hr;
    std::lock_guard<std::mutex> lock(mutex);
    return handles.count(hDevice) == 1 ? S_OK : E_HANDLE;
  }

  UINT resetToken() const { return token; }
  ID3D11Device* boundDevice() {
    std::lock_guard<std::mutex> lock(mutex);
    if (device != nullptr) device->AddRef();
    return device;
  }

 private:
  HRESULT withDevice(HANDLE hDevice, REFIID riid, void** out) {
    if (out == nullptr) return E_POINTER;
    *out = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (handles.count(hDevice) == 0) return E_HANDLE;
    return device->QueryInterface(riid, out);
  }

  void* interfaceFor(REFIID riid) override {
    if (riid == IID_IUnknown || riid == IID_IMFDXGIDeviceManager) return static_cast<IMFDXGIDeviceManager*>(this);
    return nullptr;
  }
  void releaseResources() override {
    if (device != nullptr) device->Release();
    device = nullptr;
    handles.clear();
  }

  const UINT token;
  std::mutex mutex;
  ID3D11Device* device = nullptr;  // one reference
  std::set<HANDLE> handles;
  uint32_t handleCount = 0;
};

}  // namespace

ID3D11Device* managedDevice(IMFDXGIDeviceManager* manager) {
  auto* own = dynamic_cast<DxgiDeviceManager*>(manager);
  return own == nullptr ? nullptr : own->boundDevice();
}

}  // namespace platform::mf

HRESULT WINAPI MFCreateDXGIDeviceManager(UINT* resetToken, IMFDXGIDeviceManager** ppDeviceManager) {
  HRESULT planned = platform::plannedHresult("MFCreateDXGIDeviceManager");
  if (ppDeviceManager != nullptr) *ppDeviceManager = nullptr;
  if (planned != S_OK) return planned;
  if (resetToken == nullptr || ppDeviceManager == nullptr) return E_POINTER;
  auto* manager = new platform::mf::DxgiDeviceManager();
  *resetToken = manager->resetToken();
  platform::handOut(manager, ppDeviceManager);
  return S_OK;
}
