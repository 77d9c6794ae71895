// What the software GPU's debug layer reports, the lifetime of its objects, and the fault plan
// reaching its calls.
#include <algorithm>
#include <chrono>

#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

bool debugOutputHas(const std::string& text) {
  for (const std::string& line : control::debugOutput())
    if (line.rfind("D3D11 ERROR: ", 0) == 0 && line.find(text) != std::string::npos && line.back() == '\n') return true;
  return false;
}

class DebugLayerTest : public SoftwareGpuTest {
 protected:
  void SetUp() override {
    SoftwareGpuTest::SetUp();
    d3d = makeDevice();
    ASSERT_TRUE(d3d.device);
  }
  D3D d3d;
};

TEST_F(DebugLayerTest, CorrectUseFindsNothing) {
  CountedRef<ID3D11Texture2D> gpu = makeTexture(d3d.device.get(), textureDesc(64, 64));
  CountedRef<ID3D11Texture2D> staging = makeTexture(d3d.device.get(), stagingDesc(64, 64));
  d3d.context->CopyResource(staging.get(), gpu.get());
  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  d3d.context->Unmap(staging.get(), 0);
  D3D11_QUERY_DESC desc{D3D11_QUERY_EVENT, 0};
  CountedRef<ID3D11Query> event;
  ASSERT_EQ(d3d.device->CreateQuery(&desc, event.put()), S_OK);
  d3d.context->End(event.get());
  while (d3d.context->GetData(event.get(), nullptr, 0, 0) == S_FALSE) {
  }
  EXPECT_EQ(control::debugLayerViolations(), 0u);
  EXPECT_TRUE(control::debugLayerMessages().empty());
}

TEST_F(DebugLayerTest, CopiesBetweenMismatchedTexturesAreReportedAndDropped) {
  CountedRef<ID3D11Texture2D> small = makeTexture(d3d.device.get(), stagingDesc(16, 16));
  CountedRef<ID3D11Texture2D> large = makeTexture(d3d.device.get(), stagingDesc(32, 16));
  CountedRef<ID3D11Texture2D> nv12 = makeTexture(d3d.device.get(), stagingDesc(16, 16, DXGI_FORMAT_NV12));
  D3D other = makeDevice();
  CountedRef<ID3D11Texture2D> foreign = makeTexture(other.device.get(), stagingDesc(16, 16));

  d3d.context->CopyResource(large.get(), small.get());
  EXPECT_EQ(control::debugLayerViolations(), 1u);
  EXPECT_TRUE(debugOutputHas("CopyResource: the resources differ in size"));
  d3d.context->CopyResource(nv12.get(), small.get());
  EXPECT_EQ(control::debugLayerViolations(), 2u);
  EXPECT_TRUE(debugOutputHas("differ in format"));
  d3d.context->CopyResource(small.get(), foreign.get());
  EXPECT_EQ(control::debugLayerViolations(), 3u);
  EXPECT_TRUE(debugOutputHas("created on another device"));
  d3d.context->CopyResource(small.get(), small.get());
  EXPECT_EQ(control::debugLayerViolations(), 4u);
}

TEST_F(DebugLayerTest, MappingATextureWithoutCpuAccessFails) {
  CountedRef<ID3D11Texture2D> gpu = makeTexture(d3d.device.get(), textureDesc(16, 16));
  D3D11_MAPPED_SUBRESOURCE mapped{};
  EXPECT_EQ(d3d.context->Map(gpu.get(), 0, D3D11_MAP_READ, 0, &mapped), E_INVALIDARG);
  EXPECT_EQ(mapped.pData, nullptr);
  EXPECT_EQ(control::debugLayerViolations(), 1u);
  CountedRef<ID3D11Texture2D> writeOnly =
      makeTexture(d3d.device.get(), stagingDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_CPU_ACCESS_WRITE));
  EXPECT_EQ(d3d.context->Map(writeOnly.get(), 0, D3D11_MAP_READ, 0, &mapped), E_INVALIDARG);
  EXPECT_EQ(control::debugLayerViolations(), 2u);
}

TEST_F(DebugLayerTest, CallsAfterTheFinalReleaseAreReportedNotFatal) {
  ID3D11Texture2D* texture = nullptr;
  D3D11_TEXTURE2D_DESC desc = textureDesc(16, 16);
  ASSERT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, &texture), S_OK);
  EXPECT_EQ(texture->Release(), 0u);

  D3D11_TEXTURE2D_DESC after{};
  texture->GetDesc(&after);  // a void method: it does nothing
  EXPECT_EQ(after.Width, 0u);
  CountedRef<IDXGIResource> resource;
  EXPECT_EQ(texture->QueryInterface(__uuidof(IDXGIResource), resource.putVoid()), E_POINTER);
  EXPECT_EQ(texture->AddRef(), 0u);
  EXPECT_EQ(texture->Release(), 0u);
  CountedRef<ID3D11Texture2D> staging = makeTexture(d3d.device.get(), stagingDesc(16, 16));
  d3d.context->CopyResource(staging.get(), texture);
  EXPECT_EQ(control::debugLayerViolations(), 5u);
  EXPECT_TRUE(debugOutputHas("after its final Release"));
}

TEST_F(DebugLayerTest, TheCountStartsAgainAfterAReset) {
  CountedRef<ID3D11Texture2D> gpu = makeTexture(d3d.device.get(), textureDesc(16, 16));
  D3D11_MAPPED_SUBRESOURCE mapped{};
  d3d.context->Map(gpu.get(), 0, D3D11_MAP_READ, 0, &mapped);
  ASSERT_EQ(control::debugLayerViolations(), 1u);
  control::resetDebugLayer();
  EXPECT_EQ(control::debugLayerViolations(), 0u);
  EXPECT_TRUE(control::debugLayerMessages().empty());
}

class LifetimeTest : public SoftwareGpuTest {};

TEST_F(LifetimeTest, LiveObjectsAreCountedByInterfaceAndAllGoAtTheEnd) {
  {
    CountedRef<IDXGIAdapter1> adapter = adapterAt(0);
    D3D d3d = makeDevice(adapter.get());
    CountedRef<ID3D11Texture2D> first = makeTexture(d3d.device.get(), textureDesc(16, 16));
    CountedRef<ID3D11Texture2D> second = makeTexture(d3d.device.get(), stagingDesc(16, 16));
    CountedRef<IDXGIKeyedMutex> none;
    CountedRef<IDXGIResource> dxgiFace;
    ASSERT_EQ(dxgiFace.queryFrom(first.get()), S_OK);  // the same object, not another one
    auto live = control::liveObjects();
    EXPECT_EQ(live["ID3D11Texture2D"], 2);
    EXPECT_EQ(live["ID3D11Device"], 1);
    EXPECT_EQ(live["ID3D11DeviceContext"], 1);
    EXPECT_EQ(live["IDXGIAdapter1"], 1);
    EXPECT_EQ(live["IDXGIFactory1"], 1);  // the adapter keeps its factory
    EXPECT_EQ(control::liveObjectCount("ID3D11Query"), 0);
  }
  EXPECT_EQ(control::totalLiveObjects(), 0);
  EXPECT_TRUE(control::liveObjects().empty());
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

TEST_F(LifetimeTest, ALeakedTextureKeepsItsDeviceAlive) {
  ID3D11Texture2D* leaked = nullptr;
  {
    D3D d3d = makeDevice();
    D3D11_TEXTURE2D_DESC desc = textureDesc(16, 16);
    ASSERT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, &leaked), S_OK);
  }
  EXPECT_EQ(control::liveObjectCount("ID3D11Texture2D"), 1);
  EXPECT_EQ(control::liveObjectCount("ID3D11Device"), 1);
  CountedRef<ID3D11Device> device;
  leaked->GetDevice(device.put());  // the device can be reached again through its child
  EXPECT_TRUE(device);
  device.reset();
  leaked->Release();
  EXPECT_EQ(control::totalLiveObjects(), 0);
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

class GpuFaultPlanTest : public SoftwareGpuTest {};

TEST_F(GpuFaultPlanTest, APlannedHresultIsAnsweredAndLeavesOutputsNull) {
  control::failOnce("CreateDXGIFactory1", E_OUTOFMEMORY);
  IDXGIFactory1* factory = reinterpret_cast<IDXGIFactory1*>(0x1);
  EXPECT_EQ(CreateDXGIFactory1(__uuidof(IDXGIFactory1), reinterpret_cast<void**>(&factory)), E_OUTOFMEMORY);
  EXPECT_EQ(factory, nullptr);

  control::failOnce("IDXGIFactory1::EnumAdapters1", DXGI_ERROR_NOT_FOUND);
  CountedRef<IDXGIFactory1> real = makeFactory();
  CountedRef<IDXGIAdapter1> adapter;
  EXPECT_EQ(real->EnumAdapters1(0, adapter.put()), DXGI_ERROR_NOT_FOUND);
  EXPECT_EQ(real->EnumAdapters1(0, adapter.put()), S_OK);

  control::failOnce("IDXGIAdapter1::GetDesc1", E_FAIL);
  DXGI_ADAPTER_DESC1 desc{};
  EXPECT_EQ(adapter->GetDesc1(&desc), E_FAIL);
  EXPECT_EQ(desc.VendorId, 0u);

  control::failOnce("D3D11CreateDevice", DXGI_ERROR_DEVICE_REMOVED);
  CountedRef<ID3D11Device> device;
  EXPECT_EQ(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION,
                              device.put(), nullptr, nullptr),
            DXGI_ERROR_DEVICE_REMOVED);
  EXPECT_FALSE(device);
  EXPECT_EQ(control::totalLiveObjects(), 2);  // the factory and the adapter held above
}

TEST_F(GpuFaultPlanTest, MethodsAndQueriesAreNamedByTheirInterface) {
  D3D d3d = makeDevice();
  control::failFrom("ID3D11Device::CreateTexture2D", E_OUTOFMEMORY, 2);
  CountedRef<ID3D11Texture2D> texture = makeTexture(d3d.device.get(), textureDesc(16, 16));
  D3D11_TEXTURE2D_DESC desc = textureDesc(16, 16);
  CountedRef<ID3D11Texture2D> refused;
  EXPECT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, refused.put()), E_OUTOFMEMORY);
  EXPECT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, refused.put()), E_OUTOFMEMORY);
  EXPECT_EQ(control::callCount("ID3D11Device::CreateTexture2D"), 3u);

  control::failOnce("QueryInterface(ID3D11Device1)", E_NOINTERFACE);
  CountedRef<ID3D11Device1> device1;
  EXPECT_EQ(device1.queryFrom(d3d.device.get()), E_NOINTERFACE);
  EXPECT_EQ(device1.queryFrom(d3d.device.get()), S_OK);

  control::failOnce("IDXGIDevice::GetAdapter", E_FAIL);
  CountedRef<IDXGIDevice> dxgi;
  ASSERT_EQ(dxgi.queryFrom(d3d.device.get()), S_OK);
  CountedRef<IDXGIAdapter> adapter;
  EXPECT_EQ(dxgi->GetAdapter(adapter.put()), E_FAIL);
  EXPECT_FALSE(adapter);
}

TEST_F(GpuFaultPlanTest, VoidMethodsAreCountedAndCanBeSlowed) {
  D3D d3d = makeDevice();
  CountedRef<ID3D11Texture2D> a = makeTexture(d3d.device.get(), textureDesc(16, 16));
  CountedRef<ID3D11Texture2D> b = makeTexture(d3d.device.get(), textureDesc(16, 16));
  control::delayCall("ID3D11DeviceContext::CopyResource", 30, 1);
  auto start = std::chrono::steady_clock::now();
  d3d.context->CopyResource(a.get(), b.get());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
  d3d.context->Flush();
  EXPECT_EQ(control::callCount("ID3D11DeviceContext::CopyResource"), 1u);
  EXPECT_EQ(control::callCount("ID3D11DeviceContext::Flush"), 1u);
}

}  // namespace
