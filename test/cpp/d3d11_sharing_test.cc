// Textures shared between devices by NT handle: one memory seen from both sides, ordered by the
// keyed mutex that really blocks.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr UINT kShared = D3D11_RESOURCE_MISC_SHARED_NTHANDLE | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX;

class D3D11SharingTest : public SoftwareGpuTest {
 protected:
  void SetUp() override {
    SoftwareGpuTest::SetUp();
    control::AdapterDescription first, second;
    first.vendorId = 0x8086;
    second.vendorId = 0x10DE;
    control::setMachine(machineOf({first, second}));
    a = makeDevice(adapterAt(0).get());
    b = makeDevice(adapterAt(1).get());
    ASSERT_TRUE(a.device && b.device);
    shared = makeTexture(a.device.get(), textureDesc(32, 8, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT,
                                                     D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET, 0, kShared));
    ASSERT_TRUE(shared);
  }
  void TearDown() override {
    if (handle != nullptr) CloseHandle(handle);
  }

  HANDLE shareHandle(ID3D11Texture2D* texture) {
    CountedRef<IDXGIResource1> resource;
    EXPECT_EQ(resource.queryFrom(texture), S_OK);
    HANDLE out = nullptr;
    EXPECT_EQ(resource->CreateSharedHandle(nullptr, DXGI_SHARED_RESOURCE_READ | DXGI_SHARED_RESOURCE_WRITE, nullptr, &out),
              S_OK);
    return out;
  }
  CountedRef<ID3D11Texture2D> open(D3D& side, HANDLE from) {
    CountedRef<ID3D11Device1> device1;
    EXPECT_EQ(device1.queryFrom(side.device.get()), S_OK);
    CountedRef<ID3D11Texture2D> opened;
    EXPECT_EQ(device1->OpenSharedResource1(from, __uuidof(ID3D11Texture2D), opened.putVoid()), S_OK);
    return opened;
  }
  CountedRef<IDXGIKeyedMutex> mutexOf(ID3D11Texture2D* texture) {
    CountedRef<IDXGIKeyedMutex> mutex;
    EXPECT_EQ(mutex.queryFrom(texture), S_OK);
    return mutex;
  }
  // Fills `target` on `side` with `value` through a staging texture.
  void fill(D3D& side, ID3D11Texture2D* target, uint32_t value) {
    CountedRef<ID3D11Texture2D> staging = makeTexture(side.device.get(), stagingDesc(32, 8));
    D3D11_MAPPED_SUBRESOURCE mapped{};
    ASSERT_EQ(side.context->Map(staging.get(), 0, D3D11_MAP_WRITE, 0, &mapped), S_OK);
    for (UINT y = 0; y < 8; ++y)
      for (UINT x = 0; x < 32; ++x) std::memcpy(static_cast<uint8_t*>(mapped.pData) + y * mapped.RowPitch + x * 4, &value, 4);
    side.context->Unmap(staging.get(), 0);
    side.context->CopyResource(target, staging.get());
  }
  uint32_t firstPixel(D3D& side, ID3D11Texture2D* source) {
    CountedRef<ID3D11Texture2D> staging = makeTexture(side.device.get(), stagingDesc(32, 8));
    side.context->CopyResource(staging.get(), source);
    D3D11_MAPPED_SUBRESOURCE mapped{};
    EXPECT_EQ(side.context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
    uint32_t value = 0;
    if (mapped.pData != nullptr) std::memcpy(&value, static_cast<uint8_t*>(mapped.pData) + 7 * mapped.RowPitch + 31 * 4, 4);
    side.context->Unmap(staging.get(), 0);
    return value;
  }

  D3D a, b;
  CountedRef<ID3D11Texture2D> shared;
  HANDLE handle = nullptr;
};

TEST_F(D3D11SharingTest, AHandleOpensTheSameMemoryOnAnotherDevice) {
  handle = shareHandle(shared.get());
  CountedRef<ID3D11Texture2D> opened = open(b, handle);
  ASSERT_TRUE(opened);
  D3D11_TEXTURE2D_DESC desc{};
  opened->GetDesc(&desc);
  EXPECT_EQ(desc.Width, 32u);
  EXPECT_EQ(desc.MiscFlags, kShared);

  CountedRef<IDXGIKeyedMutex> writer = mutexOf(shared.get());
  CountedRef<IDXGIKeyedMutex> reader = mutexOf(opened.get());
  ASSERT_EQ(writer->AcquireSync(0, INFINITE), S_OK);
  fill(a, shared.get(), 0xFF123456);
  ASSERT_EQ(writer->ReleaseSync(1), S_OK);
  ASSERT_EQ(reader->AcquireSync(1, INFINITE), S_OK);
  EXPECT_EQ(firstPixel(b, opened.get()), 0xFF123456u);
  ASSERT_EQ(reader->ReleaseSync(0), S_OK);
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

TEST_F(D3D11SharingTest, TheMemoryLivesWhileATextureOrAHandleHoldsIt) {
  CountedRef<IDXGIKeyedMutex> writer = mutexOf(shared.get());
  ASSERT_EQ(writer->AcquireSync(0, 0), S_OK);
  fill(a, shared.get(), 0xFFABCDEF);
  ASSERT_EQ(writer->ReleaseSync(0), S_OK);
  handle = shareHandle(shared.get());
  writer.reset();
  shared.reset();  // only the handle holds the memory now
  CountedRef<ID3D11Texture2D> opened = open(b, handle);
  ASSERT_TRUE(opened);
  ASSERT_TRUE(CloseHandle(handle));
  handle = nullptr;
  CountedRef<IDXGIKeyedMutex> reader = mutexOf(opened.get());
  ASSERT_EQ(reader->AcquireSync(0, 0), S_OK);
  EXPECT_EQ(firstPixel(b, opened.get()), 0xFFABCDEFu);
  reader->ReleaseSync(0);
}

TEST_F(D3D11SharingTest, OnlyTexturesMadeForItGiveHandles) {
  CountedRef<ID3D11Texture2D> plain = makeTexture(a.device.get(), textureDesc(16, 16));
  CountedRef<IDXGIResource1> resource;
  ASSERT_EQ(resource.queryFrom(plain.get()), S_OK);
  HANDLE none = nullptr;
  EXPECT_EQ(resource->CreateSharedHandle(nullptr, DXGI_SHARED_RESOURCE_READ, nullptr, &none), E_INVALIDARG);
  EXPECT_EQ(none, nullptr);
  CountedRef<IDXGIKeyedMutex> mutex;
  EXPECT_EQ(mutex.queryFrom(plain.get()), E_NOINTERFACE);

  CountedRef<ID3D11Device1> device1;
  ASSERT_EQ(device1.queryFrom(b.device.get()), S_OK);
  CountedRef<ID3D11Texture2D> opened;
  EXPECT_EQ(device1->OpenSharedResource1(reinterpret_cast<HANDLE>(0x7777), __uuidof(ID3D11Texture2D), opened.putVoid()),
            E_INVALIDARG);
  handle = shareHandle(shared.get());
  ASSERT_TRUE(CloseHandle(handle));
  EXPECT_EQ(device1->OpenSharedResource1(handle, __uuidof(ID3D11Texture2D), opened.putVoid()), E_INVALIDARG);
  handle = nullptr;
}

TEST_F(D3D11SharingTest, AcquireSyncWaitsForTheKeyItIsReleasedWith) {
  handle = shareHandle(shared.get());
  CountedRef<ID3D11Texture2D> opened = open(b, handle);
  CountedRef<IDXGIKeyedMutex> writer = mutexOf(shared.get());
  CountedRef<IDXGIKeyedMutex> reader = mutexOf(opened.get());
  ASSERT_EQ(writer->AcquireSync(0, INFINITE), S_OK);

  std::atomic<bool> written{false};
  std::atomic<bool> sawWrite{false};
  std::thread readerThread([&] {
    if (reader->AcquireSync(1, INFINITE) == S_OK) {
      sawWrite = written.load();
      reader->ReleaseSync(0);
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));  // the reader is now waiting
  fill(a, shared.get(), 0xFF00FF00);
  written = true;
  ASSERT_EQ(writer->ReleaseSync(1), S_OK);
  readerThread.join();
  EXPECT_TRUE(sawWrite);
  // The reader handed it back with key 0: the writer's turn again.
  EXPECT_EQ(writer->AcquireSync(0, 1000), S_OK);
  EXPECT_EQ(writer->ReleaseSync(0), S_OK);
}

TEST_F(D3D11SharingTest, AcquireSyncTimesOutWithWaitTimeout) {
  CountedRef<IDXGIKeyedMutex> mutex = mutexOf(shared.get());
  auto start = std::chrono::steady_clock::now();
  HRESULT hr = mutex->AcquireSync(5, 40);  // nobody ever releases with key 5
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(hr, HRESULT(WAIT_TIMEOUT));
  EXPECT_TRUE(SUCCEEDED(hr));  // a time-out is not a failure code
  EXPECT_GE(waited, std::chrono::milliseconds(35));
  EXPECT_EQ(mutex->AcquireSync(0, 0), S_OK);  // a new texture starts at key 0
  EXPECT_EQ(mutex->ReleaseSync(0), S_OK);
}

TEST_F(D3D11SharingTest, MisusingTheKeyedMutexFailsAndIsReported) {
  CountedRef<IDXGIKeyedMutex> mutex = mutexOf(shared.get());
  EXPECT_EQ(mutex->ReleaseSync(0), E_FAIL);  // not held
  ASSERT_EQ(mutex->AcquireSync(0, 0), S_OK);
  EXPECT_EQ(mutex->AcquireSync(0, 0), E_FAIL);  // already held by this device
  EXPECT_EQ(mutex->ReleaseSync(0), S_OK);
  EXPECT_EQ(control::debugLayerViolations(), 2u);
}

TEST_F(D3D11SharingTest, CopiesIntoAKeyedTextureWithoutTheMutexAreDropped) {
  fill(a, shared.get(), 0xFFFFFFFF);
  EXPECT_EQ(control::debugLayerViolations(), 1u);
  CountedRef<IDXGIKeyedMutex> mutex = mutexOf(shared.get());
  ASSERT_EQ(mutex->AcquireSync(0, 0), S_OK);
  EXPECT_EQ(firstPixel(a, shared.get()), 0u);
  mutex->ReleaseSync(0);
}

TEST_F(D3D11SharingTest, ATextureThatGoesHoldingTheMutexAbandonsIt) {
  handle = shareHandle(shared.get());
  CountedRef<ID3D11Texture2D> opened = open(b, handle);
  CountedRef<IDXGIKeyedMutex> holder = mutexOf(shared.get());
  ASSERT_EQ(holder->AcquireSync(0, 0), S_OK);
  holder.reset();
  shared.reset();
  CountedRef<IDXGIKeyedMutex> other = mutexOf(opened.get());
  EXPECT_EQ(other->AcquireSync(1, 1000), HRESULT(WAIT_ABANDONED));
  EXPECT_EQ(other->ReleaseSync(0), S_OK);
}

}  // namespace
