// Helpers for tests of the platform's software GPU: devices on chosen adapters and texture
// descriptions, all through the SDK surface.
#pragma once

#include <d3d11_1.h>
#include <dxgi1_2.h>
#include <gtest/gtest.h>

#include "platform/control/machine_control.h"
#include "platform/control/platform_control.h"
#include "support/counted_ref.h"

namespace testing_support {

// Starts every test on a fresh platform: default machine, no faults, clean debug layer.
class SoftwareGpuTest : public testing::Test {
 protected:
  void SetUp() override { platform::control::reset(); }
};

struct D3D {
  CountedRef<ID3D11Device> device;
  CountedRef<ID3D11DeviceContext> context;
};

CountedRef<IDXGIFactory1> makeFactory();
// Adapter `index` of a new factory; empty when there is none.
CountedRef<IDXGIAdapter1> adapterAt(UINT index);
// A device on `adapter`, or on adapter 0 through D3D_DRIVER_TYPE_HARDWARE when it is null.
D3D makeDevice(IDXGIAdapter* adapter = nullptr);

D3D11_TEXTURE2D_DESC textureDesc(UINT width, UINT height, DXGI_FORMAT format = DXGI_FORMAT_B8G8R8A8_UNORM,
                                 D3D11_USAGE usage = D3D11_USAGE_DEFAULT,
                                 UINT bindFlags = D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET,
                                 UINT cpuAccess = 0, UINT miscFlags = 0);
D3D11_TEXTURE2D_DESC stagingDesc(UINT width, UINT height, DXGI_FORMAT format = DXGI_FORMAT_B8G8R8A8_UNORM,
                                 UINT cpuAccess = D3D11_CPU_ACCESS_READ | D3D11_CPU_ACCESS_WRITE);
CountedRef<ID3D11Texture2D> makeTexture(ID3D11Device* device, const D3D11_TEXTURE2D_DESC& desc);

platform::control::MachineDescription machineOf(std::vector<platform::control::AdapterDescription> adapters);

}  // namespace testing_support
