#include "gpu/d3d_context.h"

#include <utility>

#include "support/failure.h"
#include "support/format_bounded.h"
#include "support/log.h"

namespace {

// BGRA for the capture textures, video for the scaler's processor.
constexpr UINT kDeviceFlags = D3D11_CREATE_DEVICE_BGRA_SUPPORT | D3D11_CREATE_DEVICE_VIDEO_SUPPORT;
constexpr D3D_FEATURE_LEVEL kFeatureLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0};
// A walk ends at DXGI_ERROR_NOT_FOUND; the cap only keeps a driver that fails every index from
// holding the thread in the walk. No machine comes near it.
constexpr UINT kMaxEnumerated = 1024;

HRESULT createFactory(CountedRef<IDXGIFactory1>& factory) {
  return CreateDXGIFactory1(__uuidof(IDXGIFactory1), factory.putVoid());
}

bool vendorOf(IDXGIAdapter1* adapter, UINT& vendorId) {
  DXGI_ADAPTER_DESC1 desc = {};
  if (adapter == nullptr || FAILED(adapter->GetDesc1(&desc))) return false;
  vendorId = desc.VendorId;
  return true;
}

}  // namespace

bool D3DContext::createDevice(CountedRef<IDXGIAdapter1> newAdapter, uint32_t newOutputIndex) {
  context.reset();
  device.reset();
  adapter.reset();
  outputIndex = 0;

  adapter = std::move(newAdapter);
  outputIndex = newOutputIndex;

  // An explicit adapter demands the unknown driver type.
  D3D_FEATURE_LEVEL obtained = {};
  HRESULT hr = D3D11CreateDevice(adapter.get(), D3D_DRIVER_TYPE_UNKNOWN, nullptr, kDeviceFlags, kFeatureLevels,
                                 2, D3D11_SDK_VERSION, device.put(), &obtained, context.put());
  if (FAILED(hr)) {
    device.reset();
    context.reset();
    recordHresultFailure("D3D11CreateDevice failed", hr);
    return false;
  }

  DXGI_ADAPTER_DESC1 desc = {};
  if (SUCCEEDED(adapter->GetDesc1(&desc))) {
    char line[kLogLineBytes];
    formatBounded(line, sizeof line, "D3D adapter ready (vendor=0x%04x, device=0x%04x)", desc.VendorId,
                  desc.DeviceId);
    logInfo(line);
  }
  return true;
}

bool D3DContext::createOnFirstAdapter() {
  CountedRef<IDXGIFactory1> factory;
  if (FAILED(createFactory(factory))) {
    logError("CreateDXGIFactory1 failed");
    return false;
  }
  CountedRef<IDXGIAdapter1> first;
  if (FAILED(factory->EnumAdapters1(0, first.put()))) {
    logError("EnumAdapters1 failed");
    return false;
  }
  factory.reset();
  return createDevice(std::move(first), 0);
}

bool D3DContext::createForGlobalOutput(uint32_t globalIndex) {
  CountedRef<IDXGIFactory1> factory;
  if (FAILED(createFactory(factory))) {
    logError("CreateDXGIFactory1 failed");
    return false;
  }
  uint32_t counter = 0;
  for (UINT a = 0; a < kMaxEnumerated; ++a) {
    CountedRef<IDXGIAdapter1> candidate;
    HRESULT hr = factory->EnumAdapters1(a, candidate.put());
    if (hr == DXGI_ERROR_NOT_FOUND) break;
    if (FAILED(hr)) continue;
    for (UINT o = 0; o < kMaxEnumerated; ++o) {
      CountedRef<IDXGIOutput> output;
      hr = candidate->EnumOutputs(o, output.put());
      if (hr == DXGI_ERROR_NOT_FOUND) break;
      if (FAILED(hr)) continue;  // an output that can't be had isn't counted
      if (counter == globalIndex) {
        logInfo("Selected DXGI output for native capture");
        output.reset();
        factory.reset();
        return createDevice(std::move(candidate), o);
      }
      ++counter;
    }
  }
  factory.reset();
  logError("Global output index not found, falling back to adapter 0");
  return createOnFirstAdapter();
}

bool D3DContext::createPreferNvidia() {
  CountedRef<IDXGIAdapter1> nvidia;
  if (findNvidiaAdapter(nvidia)) {
    logInfo("Using NVIDIA adapter for native capture");
    return createDevice(std::move(nvidia), 0);
  }
  CountedRef<IDXGIFactory1> factory;
  if (FAILED(createFactory(factory))) {
    logError("CreateDXGIFactory1 failed");
    return createOnFirstAdapter();
  }
  CountedRef<IDXGIAdapter1> first;
  HRESULT hr = factory->EnumAdapters1(0, first.put());
  factory.reset();
  if (FAILED(hr)) return createOnFirstAdapter();
  return createDevice(std::move(first), 0);
}

bool D3DContext::isNvidia() const {
  UINT vendorId = 0;
  return vendorOf(adapter.get(), vendorId) && vendorId == kNvidiaVendorId;
}

bool findNvidiaAdapter(CountedRef<IDXGIAdapter1>& adapter) {
  CountedRef<IDXGIFactory1> factory;
  if (FAILED(createFactory(factory))) return false;
  for (UINT a = 0; a < kMaxEnumerated; ++a) {
    CountedRef<IDXGIAdapter1> candidate;
    HRESULT hr = factory->EnumAdapters1(a, candidate.put());
    if (hr == DXGI_ERROR_NOT_FOUND) return false;
    if (FAILED(hr)) continue;
    // An adapter that can't describe itself counts as not NVIDIA.
    UINT vendorId = 0;
    if (vendorOf(candidate.get(), vendorId) && vendorId == kNvidiaVendorId) {
      adapter = std::move(candidate);
      return true;
    }
  }
  return false;
}

D3D11_TEXTURE2D_DESC nv12TextureDesc(uint32_t width, uint32_t height) {
  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = width;
  desc.Height = height;
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = DXGI_FORMAT_NV12;
  desc.SampleDesc.Count = 1;
  desc.SampleDesc.Quality = 0;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET;
  desc.CPUAccessFlags = 0;
  desc.MiscFlags = 0;
  return desc;
}
