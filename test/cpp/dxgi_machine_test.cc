// DXGI on the virtual machine: adapters and outputs in the order and shape the machine
// description gives, with the SDK's answers at the ends of the enumerations.
#include <cwchar>

#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

control::AdapterDescription adapterWith(uint32_t vendorId, uint32_t deviceId, const wchar_t* description,
                                        std::vector<control::OutputDescription> outputs) {
  control::AdapterDescription adapter;
  adapter.vendorId = vendorId;
  adapter.deviceId = deviceId;
  adapter.description = description;
  adapter.outputs = std::move(outputs);
  return adapter;
}

class DxgiMachineTest : public SoftwareGpuTest {};

TEST_F(DxgiMachineTest, DefaultMachineIsOneAdapterWithOneFullHdOutput) {
  CountedRef<IDXGIAdapter1> adapter = adapterAt(0);
  ASSERT_TRUE(adapter);
  DXGI_ADAPTER_DESC1 desc{};
  ASSERT_EQ(adapter->GetDesc1(&desc), S_OK);
  EXPECT_EQ(desc.VendorId, 0x10DEu);
  EXPECT_STREQ(desc.Description, L"Software Display Adapter");
  EXPECT_EQ(desc.Flags, UINT(DXGI_ADAPTER_FLAG_NONE));
  EXPECT_GT(desc.DedicatedVideoMemory, 0u);

  CountedRef<IDXGIOutput> output;
  ASSERT_EQ(adapter->EnumOutputs(0, output.put()), S_OK);
  DXGI_OUTPUT_DESC outputDesc{};
  ASSERT_EQ(output->GetDesc(&outputDesc), S_OK);
  EXPECT_EQ(outputDesc.DesktopCoordinates.right - outputDesc.DesktopCoordinates.left, 1920);
  EXPECT_EQ(outputDesc.DesktopCoordinates.bottom - outputDesc.DesktopCoordinates.top, 1080);
  EXPECT_TRUE(outputDesc.AttachedToDesktop);
  EXPECT_STREQ(outputDesc.DeviceName, L"\\\\.\\DISPLAY1");
}

TEST_F(DxgiMachineTest, EnumerationFollowsTheMachineAndEndsWithNotFound) {
  control::setMachine(machineOf({adapterWith(0x8086, 0x9A49, L"first", {{2560, 1440, 0, 0}}),
                                 adapterWith(0x10DE, 0x2704, L"second", {{1920, 1080, 2560, 0}, {1280, 1024, -1280, 16}})}));
  CountedRef<IDXGIFactory1> factory = makeFactory();
  std::vector<UINT> vendors;
  std::vector<RECT> outputs;
  std::vector<std::wstring> names;
  for (UINT i = 0;; ++i) {
    CountedRef<IDXGIAdapter1> adapter;
    HRESULT hr = factory->EnumAdapters1(i, adapter.put());
    if (hr == DXGI_ERROR_NOT_FOUND) {
      EXPECT_FALSE(adapter);
      break;
    }
    ASSERT_EQ(hr, S_OK);
    DXGI_ADAPTER_DESC1 desc{};
    ASSERT_EQ(adapter->GetDesc1(&desc), S_OK);
    vendors.push_back(desc.VendorId);
    for (UINT k = 0;; ++k) {
      CountedRef<IDXGIOutput> output;
      hr = adapter->EnumOutputs(k, output.put());
      if (hr == DXGI_ERROR_NOT_FOUND) break;
      ASSERT_EQ(hr, S_OK);
      DXGI_OUTPUT_DESC outputDesc{};
      ASSERT_EQ(output->GetDesc(&outputDesc), S_OK);
      outputs.push_back(outputDesc.DesktopCoordinates);
      names.push_back(outputDesc.DeviceName);
    }
  }
  EXPECT_EQ(vendors, (std::vector<UINT>{0x8086, 0x10DE}));
  ASSERT_EQ(outputs.size(), 3u);
  EXPECT_EQ(outputs[1].left, 2560);
  EXPECT_EQ(outputs[1].right, 2560 + 1920);
  EXPECT_EQ(outputs[2].left, -1280);
  EXPECT_EQ(outputs[2].top, 16);
  EXPECT_EQ(outputs[2].bottom, 16 + 1024);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"\\\\.\\DISPLAY1", L"\\\\.\\DISPLAY2", L"\\\\.\\DISPLAY3"}));

  CountedRef<IDXGIAdapter> plain;
  EXPECT_EQ(factory->EnumAdapters(2, plain.put()), DXGI_ERROR_NOT_FOUND);
  EXPECT_EQ(factory->EnumAdapters(1, plain.put()), S_OK);
}

TEST_F(DxgiMachineTest, AdaptersKeepTheirLuidAcrossFactoriesAndDifferFromEachOther) {
  control::setMachine(machineOf({adapterWith(0x10DE, 1, L"a", {}), adapterWith(0x1002, 2, L"b", {})}));
  DXGI_ADAPTER_DESC1 first{}, again{}, second{};
  adapterAt(0)->GetDesc1(&first);
  adapterAt(0)->GetDesc1(&again);
  adapterAt(1)->GetDesc1(&second);
  EXPECT_EQ(first.AdapterLuid.LowPart, again.AdapterLuid.LowPart);
  EXPECT_NE(first.AdapterLuid.LowPart, second.AdapterLuid.LowPart);
  CountedRef<IDXGIOutput> none;
  EXPECT_EQ(adapterAt(0)->EnumOutputs(0, none.put()), DXGI_ERROR_NOT_FOUND);
}

TEST_F(DxgiMachineTest, AMachineSetLaterReachesOnlyFactoriesMadeLater) {
  CountedRef<IDXGIFactory1> before = makeFactory();
  control::setMachine(machineOf({adapterWith(0x1002, 1, L"x", {}), adapterWith(0x10DE, 2, L"y", {})}));
  EXPECT_FALSE(before->IsCurrent());
  CountedRef<IDXGIAdapter1> adapter;
  EXPECT_EQ(before->EnumAdapters1(1, adapter.put()), DXGI_ERROR_NOT_FOUND);
  CountedRef<IDXGIFactory1> after = makeFactory();
  EXPECT_TRUE(after->IsCurrent());
  EXPECT_EQ(after->EnumAdapters1(1, adapter.put()), S_OK);
}

TEST_F(DxgiMachineTest, LongDescriptionsAreCutToTheFieldAndTerminated) {
  control::setMachine(machineOf({adapterWith(0x10DE, 1, std::wstring(300, L'x').c_str(), {})}));
  DXGI_ADAPTER_DESC1 desc{};
  ASSERT_EQ(adapterAt(0)->GetDesc1(&desc), S_OK);
  EXPECT_EQ(std::wcslen(desc.Description), 127u);
}

TEST_F(DxgiMachineTest, ParentsLeadBackUpTheChain) {
  CountedRef<IDXGIFactory1> factory = makeFactory();
  CountedRef<IDXGIAdapter1> adapter;
  ASSERT_EQ(factory->EnumAdapters1(0, adapter.put()), S_OK);
  CountedRef<IDXGIFactory1> parent;
  ASSERT_EQ(adapter->GetParent(__uuidof(IDXGIFactory1), parent.putVoid()), S_OK);
  EXPECT_EQ(parent.get(), factory.get());

  CountedRef<IDXGIOutput> output;
  ASSERT_EQ(adapter->EnumOutputs(0, output.put()), S_OK);
  CountedRef<IDXGIOutput1> output1;
  EXPECT_EQ(output1.queryFrom(output.get()), S_OK);
  CountedRef<IDXGIAdapter> outputParent;
  ASSERT_EQ(output->GetParent(__uuidof(IDXGIAdapter), outputParent.putVoid()), S_OK);
  CountedRef<IUnknown> a, b;
  a.queryFrom(outputParent.get());
  b.queryFrom(adapter.get());
  EXPECT_EQ(a.get(), b.get());
}

TEST_F(DxgiMachineTest, ADeviceKnowsItsAdapterThroughIDXGIDevice) {
  control::setMachine(machineOf({adapterWith(0x8086, 1, L"first", {}), adapterWith(0x10DE, 2, L"second", {})}));
  CountedRef<IDXGIAdapter1> second = adapterAt(1);
  D3D d3d = makeDevice(second.get());
  ASSERT_TRUE(d3d.device);
  CountedRef<IDXGIDevice> dxgiDevice;
  ASSERT_EQ(dxgiDevice.queryFrom(d3d.device.get()), S_OK);
  CountedRef<IDXGIAdapter> adapter;
  ASSERT_EQ(dxgiDevice->GetAdapter(adapter.put()), S_OK);
  DXGI_ADAPTER_DESC desc{};
  ASSERT_EQ(adapter->GetDesc(&desc), S_OK);
  EXPECT_EQ(desc.VendorId, 0x10DEu);
  EXPECT_STREQ(desc.Description, L"second");
}

}  // namespace
