// VideoScaler::convert per frame, beside a plain memcpy of the source frame's bytes. Each frame
// is waited for with a D3D11_QUERY_EVENT: End after convert, then GetData polled until S_OK.
// The software GPU does the work on the calling thread, so the figure is one core's time.
// Prints figures; asserts nothing.
#include <d3d11.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "gpu/d3d_context.h"
#include "gpu/video_scaler.h"
#include "platform/control/platform_control.h"
#include "test/support/gpu_test_helpers.h"

using Clock = std::chrono::steady_clock;

namespace {

constexpr int kFrames = 60;
constexpr int kCopies = 200;

double medianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

std::vector<uint32_t> picture(uint32_t width, uint32_t height) {
  std::vector<uint32_t> pixels(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      pixels[size_t(y) * width + x] = testing_support::bgra(uint8_t(x * 3 + y), uint8_t(x ^ y), uint8_t(y * 5));
    }
  }
  return pixels;
}

// Median milliseconds per converted frame, each waited for before the next starts.
double convertMs(D3DContext& d3d, uint32_t sourceWidth, uint32_t sourceHeight, uint32_t width, uint32_t height) {
  VideoScaler scaler;
  if (!scaler.init(&d3d, int32_t(width), int32_t(height))) return -1;
  CountedRef<ID3D11Texture2D> source = testing_support::textureWithPixels(
      d3d.device.get(), d3d.context.get(), sourceWidth, sourceHeight, picture(sourceWidth, sourceHeight));
  D3D11_QUERY_DESC queryDesc = {D3D11_QUERY_EVENT, 0};
  CountedRef<ID3D11Query> done;
  if (FAILED(d3d.device->CreateQuery(&queryDesc, done.put()))) return -1;
  CountedRef<ID3D11Texture2D> result;
  std::vector<double> times;
  for (int i = 0; i < kFrames + 3; ++i) {
    Clock::time_point start = Clock::now();
    if (!scaler.convert(source.get(), &result)) return -1;
    d3d.context->End(done.get());
    BOOL finished = FALSE;
    while (d3d.context->GetData(done.get(), &finished, sizeof finished, 0) != S_OK) {
    }
    if (i >= 3) times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  return medianOf(times);
}

double memcpyMs(size_t bytes) {
  std::vector<uint8_t> from(bytes, 1), to(bytes, 0);
  std::vector<double> times;
  for (int i = 0; i < kCopies + 3; ++i) {
    from[size_t(i) % bytes] = uint8_t(i);
    Clock::time_point start = Clock::now();
    std::memcpy(to.data(), from.data(), bytes);
    if (i >= 3) times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  volatile uint8_t sink = to[bytes / 2];
  (void)sink;
  return medianOf(times);
}

}  // namespace

int main() {
  D3DContext d3d;
  if (!d3d.createOnFirstAdapter()) {
    std::printf("no device\n");
    return 1;
  }
  struct Case {
    uint32_t sourceWidth, sourceHeight, width, height;
  };
  std::printf("VideoScaler::convert, median of %d frames, each waited for by an event query\n", kFrames);
  for (Case c : {Case{1920, 1080, 1920, 1080}, Case{2560, 1440, 1920, 1080}}) {
    double convert = convertMs(d3d, c.sourceWidth, c.sourceHeight, c.width, c.height);
    size_t bytes = size_t(c.sourceWidth) * c.sourceHeight * 4;
    double copy = memcpyMs(bytes);
    std::printf("%ux%u -> %ux%u: convert %.3f ms/frame; memcpy of %.1f MB %.3f ms; ratio %.1fx\n", c.sourceWidth,
                c.sourceHeight, c.width, c.height, convert, bytes / 1e6, copy, convert / copy);
  }
  return 0;
}
