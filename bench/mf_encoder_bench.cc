// MfH264Encoder on one thread through each kind of transform: the synchronous software class fed
// the frame loop's readback texture, an enumerated software transform, and the asynchronous
// hardware transform fed DXGI surfaces. Pictures per second on changing desktop content, and
// the bitrate that came out. Prints figures; asserts nothing.
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "encoders/mf_h264_encoder.h"
#include "gpu/d3d_context.h"
#include "platform/control/platform_control.h"
#include "test/support/mf_encoder_helpers.h"
#include "test/support/software_gpu.h"

using Clock = std::chrono::steady_clock;
namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr int kDistinctFrames = 12;

struct Path {
  const char* name;
  bool softwareClass, softwareTransforms, hardware;
  bool readback;  // the frame loop hands a CPU-readable copy
};

void measure(const Path& path, uint32_t width, uint32_t height, uint32_t fps, uint32_t bitrate, int pictures) {
  control::reset();
  control::setMachine(mfMachine(path.softwareClass, path.softwareTransforms, path.hardware));
  D3DContext context;
  if (!context.createOnFirstAdapter()) return;
  std::vector<CountedRef<ID3D11Texture2D>> textures;
  for (int i = 0; i < kDistinctFrames; ++i) {
    Nv12Frame frame{int(width), int(height)};
    drawDesktop(frame, i);
    CountedRef<ID3D11Texture2D> texture = nv12Texture(context.device.get(), context.context.get(), frame);
    if (path.readback) {
      CountedRef<ID3D11Texture2D> readback =
          makeTexture(context.device.get(), stagingDesc(width, height, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_READ));
      context.context->CopyResource(readback.get(), texture.get());
      texture = readback;
    }
    textures.push_back(texture);
  }
  auto encoder = std::make_unique<MfH264Encoder>();
  if (!encoder->init(&context, width, height, fps, bitrate)) {
    std::printf("%-22s %4ux%-4u init failed\n", path.name, width, height);
    return;
  }
  size_t bytes = 0;
  int empty = 0;
  auto start = Clock::now();
  for (int i = 0; i < pictures; ++i) {
    std::vector<uint8_t> out;
    if (!encoder->encode(textures[size_t(i) % textures.size()].get(), &out, nullptr)) continue;
    bytes += out.size();
    empty += out.empty();
  }
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  double mbps = double(bytes) * 8 * fps / pictures / 1e6;
  std::printf("%-22s %4ux%-4u %7.1f pictures/s  %6.2f Mbit/s at %u fps (asked %.1f)  %d empty\n", path.name, width,
              height, pictures / seconds, mbps, fps, bitrate / 1e6, empty);
}

}  // namespace

int main() {
  const Path paths[] = {
      {"sync class, readback", true, false, false, true},
      {"sync enumerated", false, true, false, false},
      {"async hardware, DXGI", false, false, true, false},
  };
  for (const Path& path : paths) {
    measure(path, 1280, 720, 60, 8'000'000, 120);
    measure(path, 1920, 1080, 60, 8'000'000, 120);
  }
  return 0;
}
