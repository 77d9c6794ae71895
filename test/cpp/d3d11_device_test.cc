// D3D11CreateDevice answers as the real one does, and each device has one immediate context.
#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

class D3D11DeviceTest : public SoftwareGpuTest {
 protected:
  HRESULT create(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, const D3D_FEATURE_LEVEL* levels, UINT count,
                 D3D_FEATURE_LEVEL* chosen = nullptr) {
    device.reset();
    context.reset();
    return D3D11CreateDevice(adapter, type, nullptr, 0, levels, count, D3D11_SDK_VERSION, device.put(), chosen,
                             context.put());
  }
  CountedRef<ID3D11Device> device;
  CountedRef<ID3D11DeviceContext> context;
};

TEST_F(D3D11DeviceTest, TheDriverTypeMustMatchWhetherAnAdapterIsGiven) {
  CountedRef<IDXGIAdapter1> adapter = adapterAt(0);
  EXPECT_EQ(create(adapter.get(), D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), E_INVALIDARG);
  EXPECT_FALSE(device);
  EXPECT_FALSE(context);
  EXPECT_EQ(create(adapter.get(), D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0), S_OK);
  EXPECT_TRUE(device);
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), S_OK);
}

TEST_F(D3D11DeviceTest, HardwareWithoutAnAdapterTakesAdapterZero) {
  control::AdapterDescription first, second;
  first.vendorId = 0x1002;
  second.vendorId = 0x10DE;
  control::setMachine(machineOf({first, second}));
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), S_OK);
  CountedRef<IDXGIDevice> dxgi;
  ASSERT_EQ(dxgi.queryFrom(device.get()), S_OK);
  CountedRef<IDXGIAdapter> adapter;
  ASSERT_EQ(dxgi->GetAdapter(adapter.put()), S_OK);
  DXGI_ADAPTER_DESC desc{};
  adapter->GetDesc(&desc);
  EXPECT_EQ(desc.VendorId, 0x1002u);
}

TEST_F(D3D11DeviceTest, AMachineWithoutAdaptersHasNoHardwareDevice) {
  control::setMachine(control::MachineDescription{});
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), DXGI_ERROR_UNSUPPORTED);
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_WARP, nullptr, 0), DXGI_ERROR_UNSUPPORTED);
}

TEST_F(D3D11DeviceTest, FeatureLevelsAreChosenFromTheListInOrder) {
  D3D_FEATURE_LEVEL chosen{};
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, &chosen), S_OK);
  EXPECT_EQ(chosen, D3D_FEATURE_LEVEL_11_0);  // the default list does not name 11_1
  EXPECT_EQ(device->GetFeatureLevel(), D3D_FEATURE_LEVEL_11_0);

  const D3D_FEATURE_LEVEL withNewest[] = {D3D_FEATURE_LEVEL_12_0, D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0};
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, withNewest, 3, &chosen), S_OK);
  EXPECT_EQ(chosen, D3D_FEATURE_LEVEL_11_1);

  const D3D_FEATURE_LEVEL onlyOld[] = {D3D_FEATURE_LEVEL_10_1, D3D_FEATURE_LEVEL_10_0};
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, onlyOld, 2, &chosen), E_INVALIDARG);
  EXPECT_FALSE(device);
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, withNewest, 0), E_INVALIDARG);
  const D3D_FEATURE_LEVEL bogus[] = {D3D_FEATURE_LEVEL(0x1234), D3D_FEATURE_LEVEL_11_0};
  EXPECT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, bogus, 2), E_INVALIDARG);
}

TEST_F(D3D11DeviceTest, OutputsMayBeLeftOutAndAllNullOnlyChecksTheArguments) {
  D3D_FEATURE_LEVEL chosen{};
  EXPECT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, nullptr,
                              &chosen, nullptr),
            S_FALSE);
  EXPECT_EQ(chosen, D3D_FEATURE_LEVEL_11_0);
  EXPECT_EQ(control::totalLiveObjects(), 0);

  CountedRef<ID3D11DeviceContext> onlyContext;
  ASSERT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, nullptr,
                              nullptr, onlyContext.put()),
            S_OK);
  CountedRef<ID3D11Device> fromContext;
  onlyContext->GetDevice(fromContext.put());
  EXPECT_TRUE(fromContext);
  EXPECT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, 6, nullptr, nullptr,
                              onlyContext.put()),
            E_INVALIDARG);
}

TEST_F(D3D11DeviceTest, EachDeviceHasExactlyOneImmediateContext) {
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), S_OK);
  CountedRef<ID3D11DeviceContext> again;
  device->GetImmediateContext(again.put());
  EXPECT_EQ(again.get(), context.get());
  EXPECT_EQ(context->GetType(), D3D11_DEVICE_CONTEXT_IMMEDIATE);
  // GetImmediateContext took a reference of its own.
  context->AddRef();
  EXPECT_EQ(context->Release(), 2u);

  CountedRef<ID3D11Device1> device1;
  ASSERT_EQ(device1.queryFrom(device.get()), S_OK);
  CountedRef<ID3D11DeviceContext1> context1;
  device1->GetImmediateContext1(context1.put());
  CountedRef<IUnknown> a, b;
  a.queryFrom(context1.get());
  b.queryFrom(context.get());
  EXPECT_EQ(a.get(), b.get());

  CountedRef<ID3D11Device> other;
  CountedRef<ID3D11DeviceContext> otherContext;
  ASSERT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, other.put(),
                              nullptr, otherContext.put()),
            S_OK);
  EXPECT_NE(otherContext.get(), context.get());
}

TEST_F(D3D11DeviceTest, TheDeviceAnswersForItsInterfacesAndNoOthers) {
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), S_OK);
  CountedRef<IUnknown> identity;
  ASSERT_EQ(identity.queryFrom(device.get()), S_OK);
  CountedRef<ID3D11VideoDevice> video;
  ASSERT_EQ(video.queryFrom(device.get()), S_OK);
  CountedRef<IUnknown> viaVideo;
  ASSERT_EQ(viaVideo.queryFrom(video.get()), S_OK);
  EXPECT_EQ(viaVideo.get(), identity.get());
  CountedRef<IDXGIDevice1> dxgi1;
  EXPECT_EQ(dxgi1.queryFrom(device.get()), S_OK);
  CountedRef<ID3D11Texture2D> notADevice;
  EXPECT_EQ(notADevice.queryFrom(device.get()), E_NOINTERFACE);
  EXPECT_FALSE(notADevice);
  CountedRef<ID3D11VideoContext> videoContext;
  EXPECT_EQ(videoContext.queryFrom(context.get()), S_OK);
}

TEST_F(D3D11DeviceTest, ReleasingTheDeviceFirstKeepsItAliveForTheContext) {
  ASSERT_EQ(create(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0), S_OK);
  device.reset();
  EXPECT_EQ(control::liveObjectCount("ID3D11Device"), 1);
  CountedRef<ID3D11Device> back;
  context->GetDevice(back.put());
  ASSERT_TRUE(back);
  back.reset();
  context.reset();
  EXPECT_EQ(control::totalLiveObjects(), 0);
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

}  // namespace
