// Textures of the software GPU: what CreateTexture2D accepts, the memory layout Map shows, copies
// seen by Map, and event queries that take a poll to complete.
#include <cstring>
#include <vector>

#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

class D3D11TextureTest : public SoftwareGpuTest {
 protected:
  void SetUp() override {
    SoftwareGpuTest::SetUp();
    d3d = makeDevice();
    ASSERT_TRUE(d3d.device);
  }
  HRESULT check(const D3D11_TEXTURE2D_DESC& desc, const D3D11_SUBRESOURCE_DATA* data = nullptr) {
    CountedRef<ID3D11Texture2D> texture;
    return d3d.device->CreateTexture2D(&desc, data, texture.put());
  }
  // Writes `fill(x, y)` into every pixel of a mappable 32-bit texture.
  template <class Fill>
  void writePixels(ID3D11Texture2D* texture, UINT width, UINT height, Fill fill) {
    D3D11_MAPPED_SUBRESOURCE mapped{};
    ASSERT_EQ(d3d.context->Map(texture, 0, D3D11_MAP_WRITE, 0, &mapped), S_OK);
    for (UINT y = 0; y < height; ++y)
      for (UINT x = 0; x < width; ++x) {
        uint32_t value = fill(x, y);
        std::memcpy(static_cast<uint8_t*>(mapped.pData) + y * mapped.RowPitch + x * 4, &value, 4);
      }
    d3d.context->Unmap(texture, 0);
  }
  D3D d3d;
};

TEST_F(D3D11TextureTest, DescriptionsTheRuntimeRefusesAreRefused) {
  EXPECT_EQ(check(textureDesc(0, 16)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16, 0)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16385, 16)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16384, 2)), S_OK);
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_R32G32B32A32_FLOAT)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_R8G8B8A8_UNORM)), S_OK);
  // Staging: CPU access required, no bind flags.
  EXPECT_EQ(check(stagingDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, 0)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_STAGING, D3D11_BIND_SHADER_RESOURCE,
                              D3D11_CPU_ACCESS_READ)),
            E_INVALIDARG);
  // Default usage has no CPU access; dynamic is written only.
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, D3D11_BIND_SHADER_RESOURCE,
                              D3D11_CPU_ACCESS_READ)),
            E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DYNAMIC, D3D11_BIND_SHADER_RESOURCE,
                              D3D11_CPU_ACCESS_WRITE)),
            S_OK);
  // Immutable needs its data.
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_IMMUTABLE, D3D11_BIND_SHADER_RESOURCE)),
            E_INVALIDARG);
  // Sharing: NT handles need a kind of sharing, and the two kinds exclude each other.
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, D3D11_BIND_RENDER_TARGET, 0,
                              D3D11_RESOURCE_MISC_SHARED_NTHANDLE)),
            E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(16, 16, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, D3D11_BIND_RENDER_TARGET, 0,
                              D3D11_RESOURCE_MISC_SHARED | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX)),
            E_INVALIDARG);
  D3D11_TEXTURE2D_DESC multisampled = textureDesc(16, 16);
  multisampled.SampleDesc.Count = 0;
  EXPECT_EQ(check(multisampled), E_INVALIDARG);
}

TEST_F(D3D11TextureTest, Nv12NeedsEvenSizes) {
  EXPECT_EQ(check(textureDesc(64, 32, DXGI_FORMAT_NV12)), S_OK);
  EXPECT_EQ(check(textureDesc(63, 32, DXGI_FORMAT_NV12)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(64, 31, DXGI_FORMAT_NV12)), E_INVALIDARG);
  EXPECT_EQ(check(textureDesc(63, 31)), S_OK);  // BGRA has no such rule
}

TEST_F(D3D11TextureTest, ANullOutputOnlyValidates) {
  D3D11_TEXTURE2D_DESC desc = textureDesc(16, 16);
  EXPECT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, nullptr), S_FALSE);
  EXPECT_EQ(control::liveObjectCount("ID3D11Texture2D"), 0);
}

TEST_F(D3D11TextureTest, MapGivesAlignedRowsWiderThanThePixels) {
  CountedRef<ID3D11Texture2D> staging = makeTexture(d3d.device.get(), stagingDesc(100, 3));
  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  EXPECT_EQ(mapped.RowPitch, 512u);  // 400 bytes of pixels, rows on 256-byte boundaries
  EXPECT_EQ(mapped.DepthPitch, 512u * 3);
  d3d.context->Unmap(staging.get(), 0);
}

TEST_F(D3D11TextureTest, CopiesArriveWhereMapLooks) {
  const UINT width = 70, height = 5;
  CountedRef<ID3D11Texture2D> upload = makeTexture(d3d.device.get(), stagingDesc(width, height));
  CountedRef<ID3D11Texture2D> gpu = makeTexture(d3d.device.get(), textureDesc(width, height));
  CountedRef<ID3D11Texture2D> readback = makeTexture(d3d.device.get(), stagingDesc(width, height));
  writePixels(upload.get(), width, height, [](UINT x, UINT y) { return 0xFF000000u | (y << 16) | x; });
  d3d.context->CopyResource(gpu.get(), upload.get());
  d3d.context->CopyResource(readback.get(), gpu.get());

  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(readback.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  for (UINT y = 0; y < height; ++y)
    for (UINT x = 0; x < width; ++x) {
      uint32_t value = 0;
      std::memcpy(&value, static_cast<uint8_t*>(mapped.pData) + y * mapped.RowPitch + x * 4, 4);
      ASSERT_EQ(value, 0xFF000000u | (y << 16) | x) << x << "," << y;
    }
  d3d.context->Unmap(readback.get(), 0);
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

TEST_F(D3D11TextureTest, Nv12ChromaFollowsLumaAtRowPitchTimesHeight) {
  const UINT width = 8, height = 4;
  std::vector<uint8_t> planes(width * height + width * height / 2);
  for (size_t i = 0; i < planes.size(); ++i) planes[i] = uint8_t(i);
  D3D11_SUBRESOURCE_DATA data{planes.data(), width, 0};
  CountedRef<ID3D11Texture2D> source;
  D3D11_TEXTURE2D_DESC desc = textureDesc(width, height, DXGI_FORMAT_NV12);
  ASSERT_EQ(d3d.device->CreateTexture2D(&desc, &data, source.put()), S_OK);
  CountedRef<ID3D11Texture2D> readback =
      makeTexture(d3d.device.get(), stagingDesc(width, height, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_READ));
  d3d.context->CopyResource(readback.get(), source.get());
  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(readback.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  ASSERT_GE(mapped.RowPitch, width);
  const uint8_t* base = static_cast<const uint8_t*>(mapped.pData);
  EXPECT_EQ(base[3 * mapped.RowPitch + 7], planes[3 * width + 7]);
  const uint8_t* chroma = base + size_t(mapped.RowPitch) * height;
  EXPECT_EQ(chroma[0], planes[width * height]);                    // Cb of the first block
  EXPECT_EQ(chroma[1], planes[width * height + 1]);                // its Cr
  EXPECT_EQ(chroma[mapped.RowPitch + 6], planes[width * height + width + 6]);
  d3d.context->Unmap(readback.get(), 0);
}

TEST_F(D3D11TextureTest, RegionCopiesMoveTheBoxOnly) {
  CountedRef<ID3D11Texture2D> source = makeTexture(d3d.device.get(), stagingDesc(8, 8));
  CountedRef<ID3D11Texture2D> target = makeTexture(d3d.device.get(), stagingDesc(8, 8));
  writePixels(source.get(), 8, 8, [](UINT x, UINT y) { return y * 8 + x + 1; });
  writePixels(target.get(), 8, 8, [](UINT, UINT) { return 0u; });
  D3D11_BOX box{2, 3, 0, 4, 5, 1};
  d3d.context->CopySubresourceRegion(target.get(), 0, 5, 6, 0, source.get(), 0, &box);
  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(target.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  auto at = [&](UINT x, UINT y) {
    uint32_t v;
    std::memcpy(&v, static_cast<uint8_t*>(mapped.pData) + y * mapped.RowPitch + x * 4, 4);
    return v;
  };
  EXPECT_EQ(at(5, 6), 3u * 8 + 2 + 1);
  EXPECT_EQ(at(6, 7), 4u * 8 + 3 + 1);
  EXPECT_EQ(at(4, 6), 0u);
  EXPECT_EQ(at(7, 7), 0u);
  d3d.context->Unmap(target.get(), 0);
}

class EventQueryTest : public D3D11TextureTest {
 protected:
  CountedRef<ID3D11Query> makeEvent() {
    D3D11_QUERY_DESC desc{D3D11_QUERY_EVENT, 0};
    CountedRef<ID3D11Query> query;
    EXPECT_EQ(d3d.device->CreateQuery(&desc, query.put()), S_OK);
    return query;
  }
  void queueACopy() {
    if (!a) {
      a = makeTexture(d3d.device.get(), textureDesc(16, 16));
      b = makeTexture(d3d.device.get(), textureDesc(16, 16));
    }
    d3d.context->CopyResource(a.get(), b.get());
  }
  CountedRef<ID3D11Texture2D> a, b;
};

TEST_F(EventQueryTest, TheFirstPollAfterQueuedWorkIsNotDone) {
  CountedRef<ID3D11Query> event = makeEvent();
  queueACopy();
  d3d.context->End(event.get());
  BOOL done = FALSE;
  EXPECT_EQ(d3d.context->GetData(event.get(), &done, sizeof done, 0), S_FALSE);
  EXPECT_FALSE(done);
  EXPECT_EQ(d3d.context->GetData(event.get(), &done, sizeof done, 0), S_OK);
  EXPECT_TRUE(done);
  // Nothing queued since: the next event is done at once.
  d3d.context->End(event.get());
  EXPECT_EQ(d3d.context->GetData(event.get(), nullptr, 0, 0), S_OK);
}

TEST_F(EventQueryTest, WithoutAFlushTheEventNeverCompletes) {
  CountedRef<ID3D11Query> event = makeEvent();
  queueACopy();
  d3d.context->End(event.get());
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(d3d.context->GetData(event.get(), nullptr, 0, D3D11_ASYNC_GETDATA_DONOTFLUSH), S_FALSE);
  d3d.context->Flush();
  EXPECT_EQ(d3d.context->GetData(event.get(), nullptr, 0, D3D11_ASYNC_GETDATA_DONOTFLUSH), S_FALSE);
  EXPECT_EQ(d3d.context->GetData(event.get(), nullptr, 0, D3D11_ASYNC_GETDATA_DONOTFLUSH), S_OK);
}

TEST_F(EventQueryTest, OnlyEventQueriesAreOfferedAndSizesAreChecked) {
  D3D11_QUERY_DESC timestamp{D3D11_QUERY_TIMESTAMP, 0};
  CountedRef<ID3D11Query> query;
  EXPECT_EQ(d3d.device->CreateQuery(&timestamp, query.put()), E_NOTIMPL);
  CountedRef<ID3D11Query> event = makeEvent();
  d3d.context->End(event.get());
  UINT64 wrongSize = 0;
  EXPECT_EQ(d3d.context->GetData(event.get(), &wrongSize, sizeof wrongSize, 0), E_INVALIDARG);
  EXPECT_EQ(event->GetDataSize(), sizeof(BOOL));
}

TEST_F(EventQueryTest, MapThatMustNotWaitSeesTheCopyStillRunningOnce) {
  CountedRef<ID3D11Texture2D> gpu = makeTexture(d3d.device.get(), textureDesc(16, 16));
  CountedRef<ID3D11Texture2D> readback = makeTexture(d3d.device.get(), stagingDesc(16, 16));
  d3d.context->CopyResource(readback.get(), gpu.get());
  D3D11_MAPPED_SUBRESOURCE mapped{};
  EXPECT_EQ(d3d.context->Map(readback.get(), 0, D3D11_MAP_READ, D3D11_MAP_FLAG_DO_NOT_WAIT, &mapped),
            DXGI_ERROR_WAS_STILL_DRAWING);
  EXPECT_EQ(mapped.pData, nullptr);
  ASSERT_EQ(d3d.context->Map(readback.get(), 0, D3D11_MAP_READ, D3D11_MAP_FLAG_DO_NOT_WAIT, &mapped), S_OK);
  d3d.context->Unmap(readback.get(), 0);
}

}  // namespace
