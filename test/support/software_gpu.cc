#include "test/support/software_gpu.h"

namespace testing_support {

CountedRef<IDXGIFactory1> makeFactory() {
  CountedRef<IDXGIFactory1> factory;
  EXPECT_EQ(CreateDXGIFactory1(__uuidof(IDXGIFactory1), factory.putVoid()), S_OK);
  return factory;
}

CountedRef<IDXGIAdapter1> adapterAt(UINT index) {
  CountedRef<IDXGIAdapter1> adapter;
  CountedRef<IDXGIFactory1> factory = makeFactory();
  if (factory) factory->EnumAdapters1(index, adapter.put());
  return adapter;
}

D3D makeDevice(IDXGIAdapter* adapter) {
  D3D d3d;
  D3D_DRIVER_TYPE type = adapter != nullptr ? D3D_DRIVER_TYPE_UNKNOWN : D3D_DRIVER_TYPE_HARDWARE;
  EXPECT_EQ(D3D11CreateDevice(adapter, type, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr, 0, D3D11_SDK_VERSION,
                              d3d.device.put(), nullptr, d3d.context.put()),
            S_OK);
  return d3d;
}

D3D11_TEXTURE2D_DESC textureDesc(UINT width, UINT height, DXGI_FORMAT format, D3D11_USAGE usage, UINT bindFlags,
                                 UINT cpuAccess, UINT miscFlags) {
  D3D11_TEXTURE2D_DESC desc{};
  desc.Width = width;
  desc.Height = height;
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = format;
  desc.SampleDesc.Count = 1;
  desc.Usage = usage;
  desc.BindFlags = bindFlags;
  desc.CPUAccessFlags = cpuAccess;
  desc.MiscFlags = miscFlags;
  return desc;
}

D3D11_TEXTURE2D_DESC stagingDesc(UINT width, UINT height, DXGI_FORMAT format, UINT cpuAccess) {
  return textureDesc(width, height, format, D3D11_USAGE_STAGING, 0, cpuAccess);
}

CountedRef<ID3D11Texture2D> makeTexture(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc) {
  CountedRef<ID3D11Texture2D> texture;
  EXPECT_EQ(device->CreateTexture2D(&desc, nullptr, texture.put()), S_OK);
  return texture;
}

platform::control::MachineDescription machineOf(std::vector<platform::control::AdapterDescription> adapters) {
  platform::control::MachineDescription machine;
  machine.adapters = std::move(adapters);
  return machine;
}

}  // namespace testing_support
