// Helpers for tests of the GPU code, on top of the software GPU's: a fixture that checks for leaks
// and debug-layer findings, adapters of given outputs, textures with given pixels, and pixels read
// back.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "test/support/software_gpu.h"

namespace testing_support {

// Resets the platform before each test. After it, every COM object must be gone, every NT handle
// closed and the debug layer must have found nothing; tests destroy their objects before TearDown
// runs.
class GpuTest : public SoftwareGpuTest {
 protected:
  void SetUp() override;
  void TearDown() override;
};

platform::control::AdapterDescription adapter(uint32_t vendorId, uint32_t deviceId, int outputs);

// The reference count of `object`, read by a balanced AddRef and Release.
ULONG referenceCount(IUnknown* object);

// A packed B8G8R8A8 pixel: 0xAARRGGBB.
constexpr uint32_t bgra(uint8_t r, uint8_t g, uint8_t b) {
  return 0xFF000000u | (uint32_t(r) << 16) | (uint32_t(g) << 8) | uint32_t(b);
}

// A default-usage texture (shader resource and render target) with `pixels`, written through a
// staging texture and CopyResource on `context`.
CountedRef<ID3D11Texture2D> textureWithPixels(ID3D11Device* device, ID3D11DeviceContext* context, uint32_t width,
                                        uint32_t height, const std::vector<uint32_t>& pixels,
                                        DXGI_FORMAT format = DXGI_FORMAT_B8G8R8A8_UNORM);

// The pixels of a 32-bit texture, through a staging copy and Map.
std::vector<uint32_t> readPixels(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture);

struct Nv12Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> y;   // width * height
  std::vector<uint8_t> uv;  // (width / 2) * 2 bytes per row, height / 2 rows, Cb before Cr
  uint8_t luma(uint32_t x, uint32_t row) const { return y[size_t(row) * width + x]; }
  uint8_t cb(uint32_t cx, uint32_t crow) const { return uv[size_t(crow) * width + 2 * cx]; }
  uint8_t cr(uint32_t cx, uint32_t crow) const { return uv[size_t(crow) * width + 2 * cx + 1]; }
};

// An NV12 texture's planes, through a staging NV12 copy and Map: the chroma plane follows the
// luma plane at RowPitch * Height.
Nv12Picture readNv12(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture);

// Studio range in double precision, for 8-bit full-range R'G'B' and the luma weights `kr`, `kb`.
struct YCbCr {
  double y, cb, cr;
};
YCbCr studioRange(uint32_t pixel, double kr, double kb);
inline YCbCr bt709Studio(uint32_t pixel) { return studioRange(pixel, 0.2126, 0.0722); }

// 10 * log10(255^2 / MSE) of two equal-sized planes; infinity when they are equal.
double psnr(const std::vector<uint8_t>& a, const std::vector<double>& reference);

// Runs `body` on a thread of its own; a body that doesn't finish within `limit` ends the test
// process with a message, so that a hang fails instead of holding the run.
void runWithin(std::chrono::milliseconds limit, const std::function<void()>& body);

}  // namespace testing_support
