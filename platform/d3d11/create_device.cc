// D3D11CreateDevice, with the rules the real one applies to its arguments.
#include <algorithm>
#include <iterator>

#include "platform/core/call_gate.h"
#include "platform/d3d11/call_records.h"
#include "platform/core/debug_layer.h"
#include "platform/d3d11/context.h"
#include "platform/d3d11/device.h"

namespace platform::d3d11 {
namespace {

// The levels a null list asks for, in the runtime's order; 11_1 has to be asked for by name.
constexpr D3D_FEATURE_LEVEL kDefaultLevels[] = {D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_10_1,
                                                D3D_FEATURE_LEVEL_10_0, D3D_FEATURE_LEVEL_9_3,
                                                D3D_FEATURE_LEVEL_9_2,  D3D_FEATURE_LEVEL_9_1};

constexpr D3D_FEATURE_LEVEL kKnownLevels[] = {
    D3D_FEATURE_LEVEL_1_0_CORE, D3D_FEATURE_LEVEL_9_1,  D3D_FEATURE_LEVEL_9_2,  D3D_FEATURE_LEVEL_9_3,
    D3D_FEATURE_LEVEL_10_0,     D3D_FEATURE_LEVEL_10_1, D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_11_1,
    D3D_FEATURE_LEVEL_12_0,     D3D_FEATURE_LEVEL_12_1, D3D_FEATURE_LEVEL_12_2};

constexpr UINT kKnownFlags = D3D11_CREATE_DEVICE_SINGLETHREADED | D3D11_CREATE_DEVICE_DEBUG |
                             D3D11_CREATE_DEVICE_SWITCH_TO_REF |
                             D3D11_CREATE_DEVICE_PREVENT_INTERNAL_THREADING_OPTIMIZATIONS |
                             D3D11_CREATE_DEVICE_BGRA_SUPPORT | D3D11_CREATE_DEVICE_DEBUGGABLE |
                             D3D11_CREATE_DEVICE_PREVENT_ALTERING_LAYER_SETTINGS_FROM_REGISTRY |
                             D3D11_CREATE_DEVICE_DISABLE_GPU_TIMEOUT | D3D11_CREATE_DEVICE_VIDEO_SUPPORT;

// The software GPU offers 11_1 and 11_0. E_INVALIDARG when the list asks for neither.
HRESULT chooseLevel(const D3D_FEATURE_LEVEL* levels, UINT count, D3D_FEATURE_LEVEL* chosen) {
  if (levels == nullptr) {
    levels = kDefaultLevels;
    count = UINT(std::size(kDefaultLevels));
  } else if (count == 0) {
    return E_INVALIDARG;
  }
  for (UINT i = 0; i < count; ++i)
    if (std::find(std::begin(kKnownLevels), std::end(kKnownLevels), levels[i]) == std::end(kKnownLevels))
      return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i) {
    if (levels[i] == D3D_FEATURE_LEVEL_11_1 || levels[i] == D3D_FEATURE_LEVEL_11_0) {
      *chosen = levels[i];
      return S_OK;
    }
  }
  return E_INVALIDARG;
}

// The adapter a device is made on: the one given, or adapter 0 of the machine for HARDWARE.
HRESULT chooseAdapter(IDXGIAdapter* given, D3D_DRIVER_TYPE driverType, HMODULE software, Pin<dxgi::Adapter>* out) {
  if (given != nullptr) {
    if (driverType != D3D_DRIVER_TYPE_UNKNOWN) return E_INVALIDARG;
    auto* adapter = dynamic_cast<dxgi::Adapter*>(given);
    if (adapter == nullptr) return E_INVALIDARG;
    if (!adapter->callableAsArgument()) {
      debugLayerViolation("D3D11CreateDevice: the adapter is used after its final Release");
      return E_INVALIDARG;
    }
    out->reset(adapter);
    return S_OK;
  }
  switch (driverType) {
    case D3D_DRIVER_TYPE_HARDWARE:
      break;
    case D3D_DRIVER_TYPE_SOFTWARE:
      return software == nullptr ? E_INVALIDARG : DXGI_ERROR_UNSUPPORTED;
    case D3D_DRIVER_TYPE_UNKNOWN:
      return E_INVALIDARG;
    default:
      return DXGI_ERROR_UNSUPPORTED;  // no reference, null or WARP driver on this machine
  }
  auto* factory = new dxgi::Factory(dxgi::machineSnapshot());
  factory->addRef();
  dxgi::Adapter* first = factory->makeAdapter(0);
  if (first != nullptr) out->reset(first);
  factory->release();  // the adapter pins it from here
  return first != nullptr ? S_OK : DXGI_ERROR_UNSUPPORTED;
}

}  // namespace
}  // namespace platform::d3d11

HRESULT WINAPI D3D11CreateDevice(IDXGIAdapter* pAdapter, D3D_DRIVER_TYPE DriverType, HMODULE Software, UINT Flags,
                                 const D3D_FEATURE_LEVEL* pFeatureLevels, UINT FeatureLevels, UINT SDKVersion,
                                 ID3D11Device** ppDevice, D3D_FEATURE_LEVEL* pFeatureLevel,
                                 ID3D11DeviceContext** ppImmediateContext) {
  using namespace platform::d3d11;
  platform::control::CreateDeviceCall record{pAdapter != nullptr, DriverType, Software != nullptr,
                                             Flags, {}, SDKVersion};
  if (pFeatureLevels != nullptr) record.featureLevels.assign(pFeatureLevels, pFeatureLevels + FeatureLevels);
  recordCreateDevice(record);
  if (ppDevice != nullptr) *ppDevice = nullptr;
  if (ppImmediateContext != nullptr) *ppImmediateContext = nullptr;
  if (pFeatureLevel != nullptr) *pFeatureLevel = D3D_FEATURE_LEVEL(0);
  if (HRESULT planned = platform::plannedHresult("D3D11CreateDevice"); planned != S_OK) return planned;
  if (SDKVersion != D3D11_SDK_VERSION || (Flags & ~kKnownFlags) != 0) return E_INVALIDARG;
  platform::Pin<platform::dxgi::Adapter> adapter;
  if (HRESULT hr = chooseAdapter(pAdapter, DriverType, Software, &adapter); hr != S_OK) return hr;
  D3D_FEATURE_LEVEL level{};
  if (HRESULT hr = chooseLevel(pFeatureLevels, FeatureLevels, &level); hr != S_OK) return hr;
  if (pFeatureLevel != nullptr) *pFeatureLevel = level;
  if (ppDevice == nullptr && ppImmediateContext == nullptr) return S_FALSE;  // only the arguments were checked

  auto* device = new Device(adapter.get(), level, Flags);
  device->addRef();
  device->start();
  if (ppImmediateContext != nullptr) {
    device->immediateContext()->addRef();
    *ppImmediateContext = device->immediateContext();
  }
  if (ppDevice != nullptr) {
    *ppDevice = device;
  } else {
    device->release();  // the context the caller holds keeps it
  }
  return S_OK;
}
