// What the software GPU's debug layer reports, the lifetime of its objects, and the fault plan
// reaching its calls.
#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

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

// The bytes of a texture of any usage, through a staging copy.
std::vector<uint8_t> contentsOf(const D3D& d3d, ID3D11Texture2D* texture) {
  D3D11_TEXTURE2D_DESC desc{};
  texture->GetDesc(&desc);
  CountedRef<ID3D11Texture2D> staging =
      makeTexture(d3d.device.get(), stagingDesc(desc.Width, desc.Height, desc.Format, D3D11_CPU_ACCESS_READ));
  d3d.context->CopyResource(staging.get(), texture);
  D3D11_MAPPED_SUBRESOURCE mapped{};
  EXPECT_EQ(d3d.context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  UINT rows = desc.Format == DXGI_FORMAT_NV12 ? desc.Height * 3 / 2 : desc.Height;
  const uint8_t* bytes = static_cast<const uint8_t*>(mapped.pData);
  std::vector<uint8_t> contents(bytes, bytes + size_t(mapped.RowPitch) * rows);
  d3d.context->Unmap(staging.get(), 0);
  return contents;
}

// A texture whose bytes count up from `seed`, so that any write into it shows.
CountedRef<ID3D11Texture2D> filled(const D3D& d3d, D3D11_TEXTURE2D_DESC desc, uint8_t seed) {
  UINT rows = desc.Format == DXGI_FORMAT_NV12 ? desc.Height * 3 / 2 : desc.Height;
  UINT pitch = desc.Format == DXGI_FORMAT_NV12 ? desc.Width : desc.Width * 4;
  std::vector<uint8_t> bytes(size_t(pitch) * rows);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(seed + i);
  D3D11_SUBRESOURCE_DATA data{bytes.data(), pitch, 0};
  CountedRef<ID3D11Texture2D> texture;
  EXPECT_EQ(d3d.device->CreateTexture2D(&desc, &data, texture.put()), S_OK);
  return texture;
}

// Every copy the runtime refuses is reported once, with its reason, and writes nothing.
TEST_F(DebugLayerTest, EachRefusedCopyIsReportedAndWritesNothing) {
  CountedRef<ID3D11Texture2D> dst = filled(d3d, stagingDesc(32, 16), 1);
  CountedRef<ID3D11Texture2D> src = filled(d3d, stagingDesc(32, 16), 100);
  CountedRef<ID3D11Texture2D> small = filled(d3d, stagingDesc(16, 16), 7);
  CountedRef<ID3D11Texture2D> nv12 = filled(d3d, stagingDesc(32, 16, DXGI_FORMAT_NV12), 3);
  CountedRef<ID3D11Texture2D> nv12Source = filled(d3d, stagingDesc(32, 16, DXGI_FORMAT_NV12), 50);
  CountedRef<ID3D11Texture2D> immutable = filled(
      d3d, textureDesc(32, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_IMMUTABLE, D3D11_BIND_SHADER_RESOURCE), 9);
  CountedRef<ID3D11Texture2D> plain = filled(d3d, textureDesc(32, 16), 11);
  D3D other = makeDevice();
  CountedRef<ID3D11Texture2D> foreign = filled(other, stagingDesc(32, 16), 13);
  CountedRef<ID3D11DeviceContext1> context1;
  ASSERT_EQ(context1.queryFrom(d3d.context.get()), S_OK);
  std::vector<uint32_t> row(64, 0xFFFFFFFF);

  auto region = [&](ID3D11Texture2D* to, UINT x, UINT y, ID3D11Texture2D* from, D3D11_BOX box) {
    d3d.context->CopySubresourceRegion(to, 0, x, y, 0, from, 0, &box);
  };
  struct Case {
    const char* what;
    ID3D11Texture2D* target;
    std::function<void()> call;
    const char* reason;
  };
  const Case cases[] = {
      {"sizes differ", dst.get(), [&] { d3d.context->CopyResource(dst.get(), small.get()); }, "differ in size"},
      {"formats differ", nv12.get(), [&] { d3d.context->CopyResource(nv12.get(), src.get()); }, "differ in format"},
      {"one resource", dst.get(), [&] { d3d.context->CopyResource(dst.get(), dst.get()); }, "are one resource"},
      {"another device", dst.get(), [&] { d3d.context->CopyResource(dst.get(), foreign.get()); },
       "created on another device"},
      {"immutable", immutable.get(), [&] { d3d.context->CopyResource(immutable.get(), src.get()); }, "immutable"},
      {"mapped source", dst.get(),
       [&] {
         D3D11_MAPPED_SUBRESOURCE mapped{};
         ASSERT_EQ(d3d.context->Map(src.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
         d3d.context->CopyResource(dst.get(), src.get());
         d3d.context->Unmap(src.get(), 0);
       },
       "a resource is mapped"},
      {"box past the right", dst.get(), [&] { region(dst.get(), 0, 0, src.get(), {0, 0, 0, 33, 8, 1}); },
       "the source box reaches outside the source"},
      {"box past the bottom", dst.get(), [&] { region(dst.get(), 0, 0, src.get(), {0, 0, 0, 8, 17, 1}); },
       "the source box reaches outside the source"},
      {"box of depth 2", dst.get(), [&] { region(dst.get(), 0, 0, src.get(), {0, 0, 0, 8, 8, 2}); },
       "the source box reaches outside the source"},
      {"region past the bottom", dst.get(), [&] { region(dst.get(), 0, 12, src.get(), {0, 0, 0, 8, 8, 1}); },
       "outside the destination"},
      {"region past the right", dst.get(), [&] { region(dst.get(), 28, 0, src.get(), {0, 0, 0, 8, 8, 1}); },
       "outside the destination"},
      {"corner that would wrap", dst.get(), [&] { region(dst.get(), 0xFFFFFFF8u, 0, src.get(), {0, 0, 0, 8, 8, 1}); },
       "outside the destination"},
      {"whole source into a smaller one", small.get(),
       [&] { d3d.context->CopySubresourceRegion(small.get(), 0, 0, 0, 0, src.get(), 0, nullptr); },
       "outside the destination"},
      {"odd NV12 corner", nv12.get(), [&] { region(nv12.get(), 1, 0, nv12Source.get(), {0, 0, 0, 4, 4, 1}); },
       "even coordinates"},
      {"odd NV12 height", nv12.get(), [&] { region(nv12.get(), 0, 0, nv12Source.get(), {0, 0, 0, 4, 3, 1}); },
       "even coordinates"},
      {"subresource 1", dst.get(),
       [&] { d3d.context->CopySubresourceRegion(dst.get(), 1, 0, 0, 0, src.get(), 0, nullptr); },
       "does not exist"},
      {"depth 1 of a 2D texture", dst.get(),
       [&] { context1->CopySubresourceRegion1(dst.get(), 0, 0, 0, 1, src.get(), 0, nullptr, 0); },
       "does not exist"},
      {"update of a staging texture", dst.get(),
       [&] { d3d.context->UpdateSubresource(dst.get(), 0, nullptr, row.data(), 256, 0); }, "default-usage"},
      {"update without data", plain.get(),
       [&] { d3d.context->UpdateSubresource(plain.get(), 0, nullptr, nullptr, 128, 0); }, "source data is null"},
      {"update past the bottom", plain.get(),
       [&] {
         D3D11_BOX box{0, 12, 0, 8, 20, 1};
         d3d.context->UpdateSubresource(plain.get(), 0, &box, row.data(), 32, 0);
       },
       "outside the resource"},
      {"update with a narrow pitch", plain.get(),
       [&] {
         D3D11_BOX box{0, 0, 0, 8, 2, 1};
         d3d.context->UpdateSubresource(plain.get(), 0, &box, row.data(), 16, 0);
       },
       "narrower than a row"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<uint8_t> before = contentsOf(d3d, c.target);
    uint64_t violations = control::debugLayerViolations();
    c.call();
    EXPECT_EQ(control::debugLayerViolations(), violations + 1);
    ASSERT_FALSE(control::debugLayerMessages().empty());
    EXPECT_NE(control::debugLayerMessages().back().find(c.reason), std::string::npos)
        << control::debugLayerMessages().back();
    EXPECT_EQ(contentsOf(d3d, c.target), before) << "a refused copy writes nothing";
  }
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
