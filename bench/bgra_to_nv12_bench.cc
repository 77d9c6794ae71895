// BGRA to NV12 on one core, beside a plain memcpy of the same source. Each is timed back to back
// on the same buffers, so each works from the caches it leaves itself; the two alternate in
// blocks so that both meet the same neighbours on a shared machine. Prints figures; asserts
// nothing.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "platform/video/bgra_to_nv12.h"
#include "platform/video/row_kernels.h"

using Clock = std::chrono::steady_clock;
namespace video = platform::video;

namespace {

constexpr int kBlocks = 15, kRunsPerBlock = 15;

double millisecondsOf(const std::function<void()>& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + long(times.size() / 2), times.end());
  return times[times.size() / 2];
}

// Gradients, panels and text-like lines, so that no path is taken for flat content.
std::vector<uint8_t> desktop(int width, int height) {
  std::vector<uint8_t> pixels(size_t(width) * size_t(height) * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &pixels[(size_t(y) * size_t(width) + size_t(x)) * 4];
      const bool text = (y / 3) % 7 == 0 && (x / 5) % 3 != 0;
      p[0] = uint8_t(text ? 20 : (x * 255) / width);
      p[1] = uint8_t(text ? 20 : 128 + 100 * std::sin(x * 0.01 + y * 0.02));
      p[2] = uint8_t(text ? 30 : (y * 255) / height);
      p[3] = 255;
    }
  }
  return pixels;
}

void measure(const video::RowKernels& kernels, int sourceWidth, int sourceHeight, int width, int height) {
  const std::vector<uint8_t> source = desktop(sourceWidth, sourceHeight);
  std::vector<uint8_t> copy(source.size()), luma(size_t(width) * size_t(height)), chroma(luma.size() / 2);
  const video::BgraImage in{source.data(), sourceWidth, sourceHeight, size_t(sourceWidth) * 4};
  const video::Nv12Image out{luma.data(), size_t(width), chroma.data(), size_t(width), width, height};

  std::vector<double> memcpyTimes, convertTimes;
  const auto copySource = [&] { std::memcpy(copy.data(), source.data(), source.size()); };
  const auto convert = [&] { video::scaleBgraToNv12With(kernels, in, out); };
  for (int block = 0; block < kBlocks; ++block) {
    for (int run = -1; run < kRunsPerBlock; ++run) {  // run -1 warms the caches
      const double ms = millisecondsOf(copySource);
      if (run >= 0) memcpyTimes.push_back(ms);
    }
    for (int run = -1; run < kRunsPerBlock; ++run) {
      const double ms = millisecondsOf(convert);
      if (run >= 0) convertTimes.push_back(ms);
    }
  }
  const double memcpyMs = median(memcpyTimes), convertMs = median(convertTimes);
  std::printf("%-5s %4dx%-4d -> %4dx%-4d  convert %6.3f ms   memcpy of source (%5.1f MB) %6.3f ms   ratio %5.2f\n",
              kernels.name, sourceWidth, sourceHeight, width, height, convertMs, double(source.size()) / 1e6,
              memcpyMs, convertMs / memcpyMs);
}

}  // namespace

int main() {
  std::printf("median of %d runs per figure; kernels in use by default: %s\n", kBlocks * kRunsPerBlock, video::bestRowKernels().name);
  const video::RowKernels* sets[] = {&video::bestRowKernels(), &video::kBaselineRowKernels};
  for (const video::RowKernels* kernels : sets) {
    measure(*kernels, 1920, 1080, 1920, 1080);
    measure(*kernels, 2560, 1440, 1920, 1080);
    measure(*kernels, 3840, 2160, 1920, 1080);
    measure(*kernels, 3840, 2160, 1280, 720);
    measure(*kernels, 1280, 720, 1920, 1080);
    if (kernels == &video::kBaselineRowKernels) break;
  }
  return 0;
}
