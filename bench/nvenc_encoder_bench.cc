// NvencEncoder on the software GPU and the platform's NVENC driver, one thread: pictures per
// second through the whole frame path (copy, register/map, encode, lock, normalise) on changing
// desktop content, and how close the bytes come to the bitrate asked for, in 2-second windows.
// Prints figures; asserts nothing.
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "encoders/nvenc_encoder.h"
#include "gpu/d3d_context.h"
#include "platform/control/platform_control.h"
#include "support/failure.h"
#include "test/support/desktop_frames.h"
#include "test/support/nv12_texture.h"

using Clock = std::chrono::steady_clock;
using testing_support::Nv12Frame;

namespace {

constexpr int kDistinctFrames = 24;  // drawn before timing, then taken in turn

std::vector<CountedRef<ID3D11Texture2D>> desktopTextures(D3DContext& d3d, int width, int height, bool video) {
  std::vector<CountedRef<ID3D11Texture2D>> textures;
  for (int i = 0; i < kDistinctFrames; ++i) {
    Nv12Frame frame(width, height);
    testing_support::drawDesktop(frame, i, video);
    textures.push_back(testing_support::nv12Texture(d3d.device.get(), frame));
  }
  return textures;
}

void measureSpeed(D3DContext& d3d, int width, int height, int pictures) {
  std::vector<CountedRef<ID3D11Texture2D>> textures = desktopTextures(d3d, width, height, false);
  NvencEncoder encoder;
  if (!encoder.init(&d3d, uint32_t(width), uint32_t(height), 60, 8000000)) {
    std::printf("init failed: %s\n", threadLastFailure.c_str());
    return;
  }
  std::vector<uint8_t> out;
  double slowest = 0;
  int failures = 0;
  const auto start = Clock::now();
  for (int i = 0; i < pictures; ++i) {
    out.clear();
    const auto before = Clock::now();
    if (!encoder.encode(textures[size_t(i % kDistinctFrames)].get(), &out, nullptr)) ++failures;
    slowest = std::max(slowest, std::chrono::duration<double, std::milli>(Clock::now() - before).count());
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("%dx%d: %.1f pictures/s over %d pictures, slowest %.2f ms, %d failed\n", width, height,
              pictures / seconds, pictures, slowest, failures);
}

void measureRate(D3DContext& d3d, int width, int height, uint32_t bitrate, int windows) {
  constexpr uint32_t kFps = 60;
  std::vector<CountedRef<ID3D11Texture2D>> textures = desktopTextures(d3d, width, height, true);
  NvencEncoder encoder;
  if (!encoder.init(&d3d, uint32_t(width), uint32_t(height), kFps, bitrate)) {
    std::printf("init failed: %s\n", threadLastFailure.c_str());
    return;
  }
  std::printf("%dx%d at %.0f Mbit/s, 2 s windows:", width, height, bitrate / 1e6);
  std::vector<uint8_t> out;
  int picture = 0;
  for (int w = 0; w < windows; ++w) {
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < 2 * kFps; ++i, ++picture) {
      out.clear();
      if (encoder.encode(textures[size_t(picture % kDistinctFrames)].get(), &out, nullptr)) bytes += out.size();
    }
    std::printf(" %+.1f%%", (double(bytes) * 8 / 2 / bitrate - 1) * 100);
  }
  std::printf("\n");
}

}  // namespace

int main() {
  platform::control::reset();
  auto d3d = std::make_unique<D3DContext>();
  if (!d3d->createPreferNvidia()) {
    std::printf("no device\n");
    return 1;
  }
  measureSpeed(*d3d, 1920, 1080, 240);
  measureSpeed(*d3d, 1280, 720, 360);
  measureRate(*d3d, 1920, 1080, 8000000, 3);
  measureRate(*d3d, 1920, 1080, 33000000, 3);
  return 0;
}
