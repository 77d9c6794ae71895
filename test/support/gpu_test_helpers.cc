#include "test/support/gpu_test_helpers.h"

#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <thread>

#include "support/failure.h"

namespace control = platform::control;

namespace testing_support {

void GpuTest::SetUp() {
  SoftwareGpuTest::SetUp();
  threadLastFailure.clear();
}

void GpuTest::TearDown() {
  EXPECT_EQ(control::debugLayerViolations(), 0u);
  for (const std::string& message : control::debugLayerMessages()) ADD_FAILURE() << "debug layer: " << message;
  EXPECT_EQ(control::totalLiveObjects(), 0);
  for (const auto& [name, count] : control::liveObjects()) {
    if (count != 0) ADD_FAILURE() << "still alive: " << count << " " << name;
  }
  EXPECT_EQ(control::openHandleCount(), 0u);
}

control::AdapterDescription adapter(uint32_t vendorId, uint32_t deviceId, int outputs) {
  control::AdapterDescription a;
  a.vendorId = vendorId;
  a.deviceId = deviceId;
  for (int i = 0; i < outputs; ++i) {
    control::OutputDescription o;
    o.left = 1920 * i;
    a.outputs.push_back(o);
  }
  return a;
}

ULONG referenceCount(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

namespace {

// A staging texture that `texture` is copied into, its description in `desc`; empty when it could
// not be made.
CountedRef<ID3D11Texture2D> readableCopy(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture,
                                         D3D11_TEXTURE2D_DESC* desc) {
  texture->GetDesc(desc);
  CountedRef<ID3D11Texture2D> staging =
      makeTexture(device, stagingDesc(desc->Width, desc->Height, desc->Format, D3D11_CPU_ACCESS_READ));
  if (staging) context->CopyResource(staging.get(), texture);
  return staging;
}

}  // namespace

CountedRef<ID3D11Texture2D> textureWithPixels(ID3D11Device* device, ID3D11DeviceContext* context, uint32_t width,
                                        uint32_t height, const std::vector<uint32_t>& pixels, DXGI_FORMAT format) {
  CountedRef<ID3D11Texture2D> texture = makeTexture(device, textureDesc(width, height, format));
  if (!texture) return texture;

  CountedRef<ID3D11Texture2D> staging = makeTexture(device, stagingDesc(width, height, format, D3D11_CPU_ACCESS_WRITE));
  if (!staging) return {};
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  EXPECT_EQ(context->Map(staging.get(), 0, D3D11_MAP_WRITE, 0, &mapped), S_OK);
  if (mapped.pData == nullptr) return {};
  for (uint32_t row = 0; row < height; ++row) {
    std::memcpy(static_cast<uint8_t*>(mapped.pData) + size_t(row) * mapped.RowPitch, &pixels[size_t(row) * width],
                size_t(width) * 4);
  }
  context->Unmap(staging.get(), 0);
  context->CopyResource(texture.get(), staging.get());
  return texture;
}

std::vector<uint32_t> readPixels(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture) {
  D3D11_TEXTURE2D_DESC desc = {};
  CountedRef<ID3D11Texture2D> staging = readableCopy(device, context, texture, &desc);
  if (!staging) return {};
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  EXPECT_EQ(context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  if (mapped.pData == nullptr) return {};
  std::vector<uint32_t> pixels(size_t(desc.Width) * desc.Height);
  for (uint32_t row = 0; row < desc.Height; ++row) {
    const uint8_t* from = static_cast<const uint8_t*>(mapped.pData) + size_t(row) * mapped.RowPitch;
    std::memcpy(&pixels[size_t(row) * desc.Width], from, size_t(desc.Width) * 4);
  }
  context->Unmap(staging.get(), 0);
  return pixels;
}

Nv12Picture readNv12(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture) {
  Nv12Picture picture;
  D3D11_TEXTURE2D_DESC desc = {};
  CountedRef<ID3D11Texture2D> staging = readableCopy(device, context, texture, &desc);
  if (!staging) return picture;
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  EXPECT_EQ(context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  if (mapped.pData == nullptr) return picture;
  EXPECT_GE(mapped.RowPitch, desc.Width);
  picture.width = desc.Width;
  picture.height = desc.Height;
  picture.y.resize(size_t(desc.Width) * desc.Height);
  picture.uv.resize(size_t(desc.Width) * (desc.Height / 2));
  const uint8_t* base = static_cast<const uint8_t*>(mapped.pData);
  for (uint32_t row = 0; row < desc.Height; ++row) {
    std::memcpy(&picture.y[size_t(row) * desc.Width], base + size_t(row) * mapped.RowPitch, desc.Width);
  }
  const uint8_t* chroma = base + size_t(mapped.RowPitch) * desc.Height;
  for (uint32_t row = 0; row < desc.Height / 2; ++row) {
    std::memcpy(&picture.uv[size_t(row) * desc.Width], chroma + size_t(row) * mapped.RowPitch, desc.Width);
  }
  context->Unmap(staging.get(), 0);
  return picture;
}

YCbCr studioRange(uint32_t pixel, double kr, double kb) {
  double r = ((pixel >> 16) & 0xFF) / 255.0;
  double g = ((pixel >> 8) & 0xFF) / 255.0;
  double b = (pixel & 0xFF) / 255.0;
  double luma = kr * r + (1 - kr - kb) * g + kb * b;
  return {16.0 + 219.0 * luma, 128.0 + 224.0 * (b - luma) / (2 * (1 - kb)),
          128.0 + 224.0 * (r - luma) / (2 * (1 - kr))};
}

double psnr(const std::vector<uint8_t>& a, const std::vector<double>& reference) {
  if (a.size() != reference.size() || a.empty()) return 0;
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    double d = double(a[i]) - reference[i];
    sum += d * d;
  }
  double mse = sum / double(a.size());
  if (mse == 0) return std::numeric_limits<double>::infinity();
  return 10.0 * std::log10(255.0 * 255.0 / mse);
}

void runWithin(std::chrono::milliseconds limit, const std::function<void()>& body) {
  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
  std::thread worker([&] {
    body();
    std::lock_guard<std::mutex> lock(mutex);
    finished = true;
    done.notify_one();
  });
  std::unique_lock<std::mutex> lock(mutex);
  if (!done.wait_for(lock, limit, [&] { return finished; })) {
    std::fprintf(stderr, "hung: the body did not finish within %lld ms\n", static_cast<long long>(limit.count()));
    std::fflush(stderr);
    std::_Exit(1);
  }
  lock.unlock();
  worker.join();
}

}  // namespace testing_support
