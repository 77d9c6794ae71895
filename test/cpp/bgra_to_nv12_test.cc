// BGRA to NV12 with scaling, against double-precision BT.709 studio-range references computed
// here. Every case runs on each kernel set the processor has (baseline SSE2, and AVX2).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "platform/video/bgra_to_nv12.h"
#include "platform/video/row_kernels.h"

namespace video = platform::video;

namespace {

struct Rgb {
  double r = 0, g = 0, b = 0;
};

// BT.709 studio range from 8-bit R'G'B' in doubles.
double lumaOf(const Rgb& c) { return 16 + 219 * (0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b) / 255; }
double cbOf(const Rgb& c) {
  return 128 + 224 * (c.b - (0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b)) / 255 / 1.8556;
}
double crOf(const Rgb& c) {
  return 128 + 224 * (c.r - (0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b)) / 255 / 1.5748;
}

struct Bgra {
  int width, height;
  size_t pitch;
  std::vector<uint8_t> bytes;

  Bgra(int w, int h, size_t extraPitch = 0, uint8_t fill = 0)
      : width(w), height(h), pitch(size_t(w) * 4 + extraPitch), bytes(pitch * size_t(h), fill) {}
  uint8_t* at(int x, int y) { return &bytes[size_t(y) * pitch + size_t(x) * 4]; }
  Rgb rgb(int x, int y) const {
    const uint8_t* p = &bytes[size_t(y) * pitch + size_t(x) * 4];
    return {double(p[2]), double(p[1]), double(p[0])};
  }
  void set(int x, int y, const Rgb& c, uint8_t alpha = 255) {
    uint8_t* p = at(x, y);
    p[0] = uint8_t(std::lround(c.b));
    p[1] = uint8_t(std::lround(c.g));
    p[2] = uint8_t(std::lround(c.r));
    p[3] = alpha;
  }
  video::BgraImage view() const { return {bytes.data(), width, height, pitch}; }
};

struct Nv12 {
  int width, height;
  size_t lumaPitch, chromaPitch;
  std::vector<uint8_t> luma, chroma;

  Nv12(int w, int h, size_t extraPitch = 0, uint8_t fill = 0)
      : width(w), height(h), lumaPitch(size_t(w) + extraPitch), chromaPitch(size_t(w) + extraPitch),
        luma(lumaPitch * size_t(h), fill), chroma(chromaPitch * size_t(h / 2), fill) {}
  int y(int x, int row) const { return luma[size_t(row) * lumaPitch + size_t(x)]; }
  int cb(int x, int row) const { return chroma[size_t(row / 2) * chromaPitch + size_t(x / 2) * 2]; }
  int cr(int x, int row) const { return chroma[size_t(row / 2) * chromaPitch + size_t(x / 2) * 2 + 1]; }
  video::Nv12Image view() { return {luma.data(), lumaPitch, chroma.data(), chromaPitch, width, height}; }
};

Bgra makeImage(int width, int height, const std::function<Rgb(int, int)>& colour) {
  Bgra image(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) image.set(x, y, colour(x, y), uint8_t(x * 7 + y));  // alpha is ignored
  }
  return image;
}

// Smooth gradients with hard-edged panels, thin lines and single-pixel detail, like a desktop.
Rgb naturalish(int x, int y, int width, int height) {
  const double u = (x + 0.5) / width, v = (y + 0.5) / height, pi = 3.14159265358979;
  Rgb c{128 + 100 * std::sin(2 * pi * (1.3 * u + 0.4 * v)), 128 + 90 * std::cos(2 * pi * (0.7 * u - 1.1 * v)),
        40 + 200 * u * v};
  if (u > 0.21 && u < 0.47 && v > 0.18 && v < 0.52) c = {235, 235, 228};                  // window
  if (u > 0.24 && u < 0.44 && v > 0.25 && v < 0.48 && (y / 2) % 9 == 0) c = {20, 20, 30};  // lines of text
  if (u > 0.6 && u < 0.9 && v > 0.6 && v < 0.75) c = {30, 90, 200};                        // panel
  if (std::abs(x - 2 * y + width / 5) < 2) c = {250, 200, 0};                               // diagonal
  if (x % 97 == 0 || y % 89 == 0) c = {255, 255, 255};                                      // grid
  return c;
}

// Per output sample, the source samples and weights of the filter the scaler promises: pixel-centre
// bilinear (edges clamped) down to half size and for enlargements; below half size the average of
// the covered source area, since bilinear there would skip source pixels altogether.
std::vector<std::vector<std::pair<int, double>>> referenceFilter(int source, int target) {
  std::vector<std::vector<std::pair<int, double>>> taps(static_cast<size_t>(target));
  const double scale = double(source) / target;
  for (int i = 0; i < target; ++i) {
    if (source <= 2 * target) {
      const double c = std::clamp((i + 0.5) * scale - 0.5, 0.0, double(source - 1));
      const int k = int(std::floor(c));
      taps[size_t(i)] = {{k, 1 - (c - k)}, {std::min(k + 1, source - 1), c - k}};
    } else {
      const double from = i * scale, to = (i + 1) * scale;
      for (int k = int(std::floor(from)); k < std::min(source, int(std::ceil(to))); ++k) {
        taps[size_t(i)].push_back({k, (std::min(k + 1.0, to) - std::max(double(k), from)) / scale});
      }
    }
  }
  return taps;
}

std::vector<Rgb> referenceResample(const Bgra& source, int width, int height) {
  const auto columns = referenceFilter(source.width, width), rows = referenceFilter(source.height, height);
  std::vector<Rgb> across(size_t(width) * size_t(source.height)), out(size_t(width) * size_t(height));
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < width; ++x) {
      Rgb sum;
      for (const auto& [k, w] : columns[size_t(x)]) {
        const Rgb c = source.rgb(k, y);
        sum = {sum.r + w * c.r, sum.g + w * c.g, sum.b + w * c.b};
      }
      across[size_t(y) * size_t(width) + size_t(x)] = sum;
    }
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      Rgb sum;
      for (const auto& [k, w] : rows[size_t(y)]) {
        const Rgb& c = across[size_t(k) * size_t(width) + size_t(x)];
        sum = {sum.r + w * c.r, sum.g + w * c.g, sum.b + w * c.b};
      }
      out[size_t(y) * size_t(width) + size_t(x)] = sum;
    }
  }
  return out;
}

// Chroma of a 2x2 block is BT.709 of the block's mean RGB (the same as the mean of the block's
// unrounded full-resolution Cb and Cr, the conversion being affine).
Rgb blockMean(const std::function<Rgb(int, int)>& rgb, int x, int y) {
  Rgb sum;
  for (int dy = 0; dy < 2; ++dy) {
    for (int dx = 0; dx < 2; ++dx) {
      const Rgb c = rgb(x + dx, y + dy);
      sum = {sum.r + c.r, sum.g + c.g, sum.b + c.b};
    }
  }
  return {sum.r / 4, sum.g / 4, sum.b / 4};
}

double psnr(double squaredError, size_t count) { return 10 * std::log10(255.0 * 255.0 * double(count) / squaredError); }

class BgraToNv12 : public testing::TestWithParam<const video::RowKernels*> {
 protected:
  void SetUp() override {
    if (GetParam() == &video::kAvx2RowKernels && !__builtin_cpu_supports("avx2")) GTEST_SKIP() << "no AVX2";
  }
  void convert(const Bgra& source, Nv12& target) { video::scaleBgraToNv12With(*GetParam(), source.view(), target.view()); }

  // Largest distance of any Y, Cb, Cr from the reference of an unscaled conversion.
  int worstUnscaledError(const Bgra& source) {
    Nv12 target(source.width, source.height);
    convert(source, target);
    double worst = 0;
    for (int y = 0; y < source.height; ++y) {
      for (int x = 0; x < source.width; ++x) {
        worst = std::max(worst, std::abs(target.y(x, y) - lumaOf(source.rgb(x, y))));
        if (x % 2 == 0 && y % 2 == 0) {
          const Rgb mean = blockMean([&](int px, int py) { return source.rgb(px, py); }, x, y);
          worst = std::max(worst, std::abs(target.cb(x, y) - cbOf(mean)));
          worst = std::max(worst, std::abs(target.cr(x, y) - crOf(mean)));
        }
      }
    }
    return int(std::ceil(worst - 0.5));  // distance from the reference rounded to the nearest level
  }
};

TEST_P(BgraToNv12, UnscaledColourBarsAndGradientsAreWithinOneLevelOfBt709) {
  // 75% bars: white, yellow, cyan, green, magenta, red, blue, black.
  const Rgb bars[] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                      {191, 0, 191},   {191, 0, 0},   {0, 0, 191},   {0, 0, 0}};
  EXPECT_LE(worstUnscaledError(makeImage(1920, 1080, [&](int x, int) { return bars[x * 8 / 1920]; })), 1);

  // Every level of each channel, in combinations that reach the corners of the colour cube.
  const auto gradient = [](int x, int y) {
    return Rgb{double(x % 256), double(y % 256), double((x / 256 * 37 + y / 256 * 91 + 255 - x % 256) % 256)};
  };
  EXPECT_LE(worstUnscaledError(makeImage(1920, 1080, gradient)), 1);

  // Noise: every 2x2 block mixes four unrelated colours, so chroma must average all four.
  uint32_t state = 12345;
  const auto noise = [&](int, int) {
    const auto next = [&] { return double((state = state * 1664525u + 1013904223u) >> 24); };
    return Rgb{next(), next(), next()};
  };
  EXPECT_LE(worstUnscaledError(makeImage(1920, 1080, noise)), 1);

  // Narrow rows end part-way through a vector of pixels.
  for (int width : {2, 6, 18, 34, 62, 66}) {
    EXPECT_LE(worstUnscaledError(makeImage(width, 6, gradient)), 1) << width;
  }
}

TEST_P(BgraToNv12, FlatColoursComeOutExactAtAnyScale) {
  const struct {
    Rgb rgb;
    int y, cb, cr;
  } cases[] = {{{0, 0, 0}, 16, 128, 128},     {{255, 255, 255}, 235, 128, 128}, {{128, 128, 128}, 126, 128, 128},
               {{255, 0, 0}, 63, 102, 240},   {{0, 255, 0}, 173, 42, 26},       {{0, 0, 255}, 32, 240, 118}};
  for (const auto& c : cases) {
    // Range ends and neutral grey, through enlargement, reduction and extreme proportions.
    for (const auto& [width, height] : {std::pair{48, 20}, std::pair{64, 4}, std::pair{9, 7}, std::pair{1, 1},
                                        std::pair{300, 2}, std::pair{16000, 3}, std::pair{3, 9000}}) {
      Nv12 target(48, 20);
      convert(makeImage(width, height, [&](int, int) { return c.rgb; }), target);
      for (int y = 0; y < target.height; ++y) {
        for (int x = 0; x < target.width; ++x) {
          ASSERT_EQ(target.y(x, y), c.y) << width << "x" << height << " at " << x << "," << y;
          ASSERT_EQ(target.cb(x, y), c.cb) << width << "x" << height;
          ASSERT_EQ(target.cr(x, y), c.cr) << width << "x" << height;
        }
      }
    }
  }
}

TEST_P(BgraToNv12, ScaledOutputFollowsTheReferenceResample) {
  const struct {
    int sourceWidth, sourceHeight, width, height;
  } cases[] = {{3840, 2160, 1280, 720}, {2560, 1080, 1920, 1080}, {1366, 769, 1280, 720},
               {640, 360, 1280, 720},   {2560, 1440, 1920, 1080}, {3200, 1800, 1280, 720},
               {5120, 2880, 1280, 720}};
  for (const auto& c : cases) {
    const Bgra source = makeImage(c.sourceWidth, c.sourceHeight,
                                  [&](int x, int y) { return naturalish(x, y, c.sourceWidth, c.sourceHeight); });
    Nv12 target(c.width, c.height);
    convert(source, target);
    const std::vector<Rgb> reference = referenceResample(source, c.width, c.height);
    const auto at = [&](int x, int y) { return reference[size_t(y) * size_t(c.width) + size_t(x)]; };
    double lumaError = 0, chromaError = 0, errorSum = 0, worst = 0;
    for (int y = 0; y < c.height; ++y) {
      for (int x = 0; x < c.width; ++x) {
        const double error = target.y(x, y) - lumaOf(at(x, y));
        lumaError += error * error;
        errorSum += error;
        worst = std::max(worst, std::abs(error));
        if (x % 2 == 0 && y % 2 == 0) {
          const Rgb mean = blockMean(at, x, y);
          chromaError += std::pow(target.cb(x, y) - cbOf(mean), 2) + std::pow(target.cr(x, y) - crOf(mean), 2);
        }
      }
    }
    const size_t pixels = size_t(c.width) * size_t(c.height);
    const double lumaPsnr = psnr(lumaError, pixels), chromaPsnr = psnr(chromaError, pixels / 2);
    const double bias = errorSum / double(pixels);
    std::printf("  %s %dx%d -> %dx%d: luma %.1f dB, chroma %.1f dB, luma bias %+.3f, worst %.2f\n", GetParam()->name,
                c.sourceWidth, c.sourceHeight, c.width, c.height, lumaPsnr, chromaPsnr, bias, worst);
    const std::string name = std::to_string(c.sourceWidth) + "x" + std::to_string(c.sourceHeight) + " -> " +
                             std::to_string(c.width) + "x" + std::to_string(c.height);
    EXPECT_GE(lumaPsnr, 45.0) << name;
    EXPECT_GE(chromaPsnr, 45.0) << name;
    // No pixel far off (a wrong edge column hides in the PSNR), and no drift up or down overall.
    EXPECT_LE(worst, 2.0) << name;
    EXPECT_LE(std::abs(bias), 0.15) << name;
  }
}

TEST_P(BgraToNv12, LargeReductionsAverageDetailInsteadOfDroppingIt) {
  // One white pixel in every 3x3 block: a third-size target is uniformly a ninth of white, where
  // sampling, or bilinear reading only each block's centre, would give black.
  const Bgra dots = makeImage(3840, 2160, [](int x, int y) {
    return x % 3 == 0 && y % 3 == 0 ? Rgb{255, 255, 255} : Rgb{};
  });
  Nv12 target(1280, 720);
  convert(dots, target);
  const int expected = int(std::lround(16 + 219 / 9.0));
  for (int y = 0; y < target.height; ++y) {
    for (int x = 0; x < target.width; ++x) ASSERT_NEAR(target.y(x, y), expected, 1) << x << "," << y;
  }
}

TEST_P(BgraToNv12, PitchesWiderThanTheRowsAreHonoured) {
  for (const auto& [width, height] : {std::pair{1920, 1080}, std::pair{1366, 769}, std::pair{3840, 2160},
                                      std::pair{5, 3}}) {
    const Bgra tight = makeImage(width, height, [&](int x, int y) { return naturalish(x, y, width, height); });
    // The same pixels with bright bytes between the rows, which must not leak into the output.
    Bgra padded(width, height, 52, 0xFF);
    for (int y = 0; y < height; ++y) std::copy_n(&tight.bytes[size_t(y) * tight.pitch], 4 * width, padded.at(0, y));

    const int targetWidth = width == 1920 ? 1920 : 1280, targetHeight = height == 1080 ? 1080 : 720;
    Nv12 expected(targetWidth, targetHeight), roomy(targetWidth, targetHeight, 40, 0x5A);
    convert(tight, expected);
    convert(padded, roomy);
    for (int y = 0; y < targetHeight; ++y) {
      const uint8_t* luma = &roomy.luma[size_t(y) * roomy.lumaPitch];
      ASSERT_TRUE(std::equal(luma, luma + targetWidth, &expected.luma[size_t(y) * expected.lumaPitch])) << y;
      ASSERT_TRUE(std::all_of(luma + targetWidth, luma + roomy.lumaPitch, [](uint8_t b) { return b == 0x5A; })) << y;
    }
    for (int y = 0; y < targetHeight / 2; ++y) {
      const uint8_t* chroma = &roomy.chroma[size_t(y) * roomy.chromaPitch];
      ASSERT_TRUE(std::equal(chroma, chroma + targetWidth, &expected.chroma[size_t(y) * expected.chromaPitch])) << y;
      ASSERT_TRUE(std::all_of(chroma + targetWidth, chroma + roomy.chromaPitch, [](uint8_t b) { return b == 0x5A; }))
          << y;
    }
  }
}

TEST_P(BgraToNv12, DegenerateInputLeavesTheTargetUntouched) {
  const Bgra source = makeImage(64, 32, [](int x, int y) { return Rgb{double(x), double(y), 200}; });
  const auto untouched = [&](video::BgraImage in, std::function<void(video::Nv12Image&)> spoil) {
    Nv12 target(32, 16, 0, 0x5A);
    video::Nv12Image out = target.view();
    spoil(out);
    video::scaleBgraToNv12With(*GetParam(), in, out);
    return std::all_of(target.luma.begin(), target.luma.end(), [](uint8_t b) { return b == 0x5A; }) &&
           std::all_of(target.chroma.begin(), target.chroma.end(), [](uint8_t b) { return b == 0x5A; });
  };
  const auto keep = [](video::Nv12Image&) {};
  const video::BgraImage good = source.view();
  EXPECT_TRUE(untouched({nullptr, 64, 32, 256}, keep));
  EXPECT_TRUE(untouched({good.pixels, 0, 32, 256}, keep));
  EXPECT_TRUE(untouched({good.pixels, -64, 32, 256}, keep));
  EXPECT_TRUE(untouched({good.pixels, 64, 0, 256}, keep));
  EXPECT_TRUE(untouched({good.pixels, 64, -1, 256}, keep));
  EXPECT_TRUE(untouched({good.pixels, 64, 32, 255}, keep));  // pitch shorter than a row
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.luma = nullptr; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.chroma = nullptr; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.width = 0; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.height = -2; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.width = 31; }));  // NV12 needs even sizes
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.height = 15; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.lumaPitch = 31; }));
  EXPECT_TRUE(untouched(good, [](video::Nv12Image& t) { t.chromaPitch = 31; }));
  EXPECT_FALSE(untouched(good, keep));  // the same call with usable input does write
}

INSTANTIATE_TEST_SUITE_P(KernelSets, BgraToNv12,
                         testing::Values(&video::kBaselineRowKernels, &video::kAvx2RowKernels),
                         [](const testing::TestParamInfo<const video::RowKernels*>& info) {
                           return std::string(info.param->name);
                         });

}  // namespace
