#include "gpu/video_scaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "platform/control/platform_control.h"
#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using testing_support::bgra;
using testing_support::Nv12Picture;

namespace {

std::vector<uint32_t> solid(uint32_t width, uint32_t height, uint32_t pixel) {
  return std::vector<uint32_t>(size_t(width) * height, pixel);
}

// 75% colour bars over the top three quarters, a grey ramp below. Bars and the band edge fall on
// even pixels, so no 2x2 chroma block straddles two colours.
std::vector<uint32_t> barsAndRamp(uint32_t width, uint32_t height) {
  const uint32_t bars[8] = {bgra(191, 191, 191), bgra(191, 191, 0), bgra(0, 191, 191), bgra(0, 191, 0),
                            bgra(191, 0, 191),   bgra(191, 0, 0),   bgra(0, 0, 191),   bgra(0, 0, 0)};
  std::vector<uint32_t> pixels(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      uint8_t grey = uint8_t(x * 256 / width);
      pixels[size_t(y) * width + x] = y < height * 3 / 4 ? bars[x * 8 / width] : bgra(grey, grey, grey);
    }
  }
  return pixels;
}

// Slow waves in each channel: what any good filter scales alike.
std::vector<uint32_t> smooth(uint32_t width, uint32_t height) {
  std::vector<uint32_t> pixels(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      double u = double(x) / width, v = double(y) / height;
      auto channel = [](double value) { return uint8_t(std::lround(std::clamp(value, 0.0, 255.0))); };
      pixels[size_t(y) * width + x] = bgra(channel(128 + 90 * std::sin(2 * M_PI * (1.5 * u + 0.2 * v))),
                                           channel(128 + 90 * std::cos(2 * M_PI * (0.7 * u - 1.1 * v))),
                                           channel(128 + 80 * std::sin(2 * M_PI * (u * v + 0.3))));
    }
  }
  return pixels;
}

// Studio-range luma of `pixels` scaled to `width` x `height` by centre-aligned bilinear sampling.
std::vector<double> bilinearLuma(const std::vector<uint32_t>& pixels, uint32_t sourceWidth, uint32_t sourceHeight,
                                 uint32_t width, uint32_t height) {
  std::vector<double> luma(pixels.size());
  for (size_t i = 0; i < pixels.size(); ++i) luma[i] = testing_support::bt709Studio(pixels[i]).y;
  auto at = [&](int x, int y) {
    x = std::clamp(x, 0, int(sourceWidth) - 1);
    y = std::clamp(y, 0, int(sourceHeight) - 1);
    return luma[size_t(y) * sourceWidth + x];
  };
  std::vector<double> out(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    double sy = (y + 0.5) * sourceHeight / height - 0.5;
    int y0 = int(std::floor(sy));
    double fy = sy - y0;
    for (uint32_t x = 0; x < width; ++x) {
      double sx = (x + 0.5) * sourceWidth / width - 0.5;
      int x0 = int(std::floor(sx));
      double fx = sx - x0;
      out[size_t(y) * width + x] = (1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x0 + 1, y0)) +
                                   fy * ((1 - fx) * at(x0, y0 + 1) + fx * at(x0 + 1, y0 + 1));
    }
  }
  return out;
}

class VideoScalerTest : public testing_support::GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    d3d = std::make_unique<D3DContext>();
    ASSERT_TRUE(d3d->createOnFirstAdapter());
    scaler = std::make_unique<VideoScaler>();
    control::clearDebugOutput();
    control::resetCallCounts();
  }

  void TearDown() override {
    result.reset();
    scaler.reset();
    d3d.reset();
    GpuTest::TearDown();
  }

  CountedRef<ID3D11Texture2D> texture(uint32_t width, uint32_t height, const std::vector<uint32_t>& pixels) {
    return testing_support::textureWithPixels(d3d->device.get(), d3d->context.get(), width, height, pixels);
  }

  // Converts a source of the given pixels and reads the NV12 picture back.
  Nv12Picture convert(uint32_t width, uint32_t height, const std::vector<uint32_t>& pixels) {
    CountedRef<ID3D11Texture2D> source = texture(width, height, pixels);
    EXPECT_TRUE(scaler->convert(source.get(), &result));
    if (!result) return {};
    EXPECT_EQ(result.get(), scaler->outputTexture.get());
    return readBack();
  }

  Nv12Picture readBack() { return testing_support::readNv12(d3d->device.get(), d3d->context.get(), result.get()); }

  std::unique_ptr<D3DContext> d3d;
  std::unique_ptr<VideoScaler> scaler;
  CountedRef<ID3D11Texture2D> result;
};

TEST_F(VideoScalerTest, UnscaledColourBarsMatchBt709StudioRange) {
  ASSERT_TRUE(scaler->init(d3d.get(), 1920, 1080));
  std::vector<uint32_t> pixels = barsAndRamp(1920, 1080);
  Nv12Picture picture = convert(1920, 1080, pixels);
  ASSERT_EQ(picture.width, 1920u);
  ASSERT_EQ(picture.height, 1080u);
  D3D11_TEXTURE2D_DESC desc = {};
  result->GetDesc(&desc);
  EXPECT_EQ(desc.Format, DXGI_FORMAT_NV12);

  int lumaMisses = 0, chromaMisses = 0;
  for (uint32_t y = 0; y < 1080; ++y) {
    for (uint32_t x = 0; x < 1920; ++x) {
      double expected = testing_support::bt709Studio(pixels[size_t(y) * 1920 + x]).y;
      if (std::abs(picture.luma(x, y) - expected) > 1.0 && lumaMisses++ < 5) {
        ADD_FAILURE() << "Y at " << x << "," << y << ": " << int(picture.luma(x, y)) << " vs " << expected;
      }
    }
  }
  for (uint32_t cy = 0; cy < 540; ++cy) {
    for (uint32_t cx = 0; cx < 960; ++cx) {
      double cb = 0, cr = 0;
      for (uint32_t dy = 0; dy < 2; ++dy) {
        for (uint32_t dx = 0; dx < 2; ++dx) {
          testing_support::YCbCr c = testing_support::bt709Studio(pixels[size_t(2 * cy + dy) * 1920 + 2 * cx + dx]);
          cb += c.cb / 4;
          cr += c.cr / 4;
        }
      }
      if ((std::abs(picture.cb(cx, cy) - cb) > 1.0 || std::abs(picture.cr(cx, cy) - cr) > 1.0) &&
          chromaMisses++ < 5) {
        ADD_FAILURE() << "CbCr at " << cx << "," << cy << ": " << int(picture.cb(cx, cy)) << ","
                      << int(picture.cr(cx, cy)) << " vs " << cb << "," << cr;
      }
    }
  }
  EXPECT_EQ(lumaMisses, 0);
  EXPECT_EQ(chromaMisses, 0);
  EXPECT_TRUE(control::debugOutput().empty());
}

TEST_F(VideoScalerTest, ScaledPicturesFollowABilinearReference) {
  struct Case {
    uint32_t sourceWidth, sourceHeight, width, height;
  };
  for (Case c : {Case{1920, 1080, 1920, 1080}, Case{3840, 2160, 1280, 720}, Case{4096, 2304, 1280, 720},
                 Case{1279, 719, 1280, 720}, Case{2560, 1440, 1920, 1080}}) {
    SCOPED_TRACE(testing::Message() << c.sourceWidth << "x" << c.sourceHeight << " to " << c.width << "x" << c.height);
    scaler = std::make_unique<VideoScaler>();
    ASSERT_TRUE(scaler->init(d3d.get(), int32_t(c.width), int32_t(c.height)));
    std::vector<uint32_t> pixels = smooth(c.sourceWidth, c.sourceHeight);
    Nv12Picture picture = convert(c.sourceWidth, c.sourceHeight, pixels);
    ASSERT_EQ(picture.width, c.width);
    ASSERT_EQ(picture.height, c.height);
    double quality = testing_support::psnr(
        picture.y, bilinearLuma(pixels, c.sourceWidth, c.sourceHeight, c.width, c.height));
    EXPECT_GE(quality, 45.0);
    RecordProperty("psnr", std::to_string(quality));
  }
}

TEST_F(VideoScalerTest, AWiderSourceIsSqueezedWithoutBarsOrCrop) {
  ASSERT_TRUE(scaler->init(d3d.get(), 1920, 1080));
  // Red over the left quarter of the source, blue over the rest.
  std::vector<uint32_t> pixels(size_t(2560) * 1080);
  for (uint32_t y = 0; y < 1080; ++y) {
    for (uint32_t x = 0; x < 2560; ++x) pixels[size_t(y) * 2560 + x] = x < 640 ? bgra(255, 0, 0) : bgra(0, 0, 255);
  }
  Nv12Picture picture = convert(2560, 1080, pixels);
  ASSERT_EQ(picture.width, 1920u);
  double red = testing_support::bt709Studio(bgra(255, 0, 0)).y;
  double blue = testing_support::bt709Studio(bgra(0, 0, 255)).y;
  for (uint32_t y : {0u, 1u, 540u, 1078u, 1079u}) {
    SCOPED_TRACE(y);
    // The quarter boundary lands at 480 when squeezed (a centred crop would put it at 320).
    for (uint32_t x : {0u, 1u, 300u, 470u}) EXPECT_NEAR(picture.luma(x, y), red, 1.0) << x;
    for (uint32_t x : {490u, 1000u, 1918u, 1919u}) EXPECT_NEAR(picture.luma(x, y), blue, 1.0) << x;
  }
  EXPECT_GT(picture.cr(0, 0), 200);
  EXPECT_GT(picture.cb(959, 539), 200);
}

TEST_F(VideoScalerTest, EachNewSourceSizeOrTextureGetsANewInputView) {
  ASSERT_TRUE(scaler->init(d3d.get(), 640, 360));
  CountedRef<ID3D11Texture2D> big = texture(1920, 1080, solid(1920, 1080, bgra(255, 0, 0)));
  CountedRef<ID3D11Texture2D> small = texture(1280, 720, solid(1280, 720, bgra(0, 255, 0)));
  CountedRef<ID3D11Texture2D> sameSize = texture(1920, 1080, solid(1920, 1080, bgra(0, 0, 255)));
  auto views = [] { return control::callCount("ID3D11VideoDevice::CreateVideoProcessorInputView"); };
  auto lumaAfter = [&](ID3D11Texture2D* source) {
    EXPECT_TRUE(scaler->convert(source, &result));
    return readBack().luma(320, 180);
  };

  EXPECT_NEAR(lumaAfter(big.get()), 63, 1);
  EXPECT_NEAR(lumaAfter(big.get()), 63, 1);
  EXPECT_EQ(views(), 1u) << "the same texture keeps its view";
  EXPECT_NEAR(lumaAfter(small.get()), 173, 1);
  EXPECT_EQ(views(), 2u);
  EXPECT_NEAR(lumaAfter(big.get()), 63, 1);
  EXPECT_EQ(views(), 3u) << "the cache holds one view only";
  EXPECT_NEAR(lumaAfter(sameSize.get()), 32, 1) << "a new texture of the same size shows its own pixels";
  EXPECT_EQ(views(), 4u);
  EXPECT_EQ(scaler->inputWidth, 1920u);
  EXPECT_EQ(scaler->inputHeight, 1080u);

  // A new init makes a new processor: no view of the one before serves it.
  ASSERT_TRUE(scaler->init(d3d.get(), 640, 360));
  EXPECT_NEAR(lumaAfter(sameSize.get()), 32, 1);
  EXPECT_EQ(views(), 5u);
}

TEST_F(VideoScalerTest, TheResultSlotHoldsOneReferenceToTheOutput) {
  ASSERT_TRUE(scaler->init(d3d.get(), 640, 360));
  CountedRef<ID3D11Texture2D> source = texture(640, 360, solid(640, 360, bgra(10, 20, 30)));
  ASSERT_TRUE(scaler->convert(source.get(), &result));
  ULONG references = testing_support::referenceCount(result.get());
  ASSERT_TRUE(scaler->convert(source.get(), &result));
  EXPECT_EQ(testing_support::referenceCount(result.get()), references);
}

TEST_F(VideoScalerTest, EachInitStepThatFailsWritesItsLine) {
  struct Case {
    const char* call;
    std::string line;
  };
  const std::vector<Case> cases = {
      {"QueryInterface(ID3D11VideoDevice)", "QueryInterface ID3D11VideoDevice failed"},
      {"QueryInterface(ID3D11VideoContext)", "QueryInterface ID3D11VideoContext failed"},
      {"ID3D11VideoDevice::CreateVideoProcessorEnumerator", "CreateVideoProcessorEnumerator failed"},
      {"ID3D11VideoDevice::CreateVideoProcessor", "CreateVideoProcessor failed"},
      {"ID3D11Device::CreateTexture2D", "CreateTexture2D NV12 failed"},
      {"ID3D11VideoDevice::CreateVideoProcessorOutputView", "CreateVideoProcessorOutputView failed"},
  };
  CountedRef<ID3D11Texture2D> source = texture(320, 240, solid(320, 240, bgra(0, 0, 0)));
  // Each case fails the init of a scaler that had worked before: nothing of the old one may stay.
  ASSERT_TRUE(scaler->init(d3d.get(), 320, 240));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.call);
    ASSERT_TRUE(scaler->convert(source.get(), &result));
    result.reset();
    control::clearDebugOutput();
    control::failOnce(c.call, E_OUTOFMEMORY);
    EXPECT_FALSE(scaler->init(d3d.get(), 320, 240));
    EXPECT_EQ(control::debugOutput(), std::vector<std::string>{"[kestrane-win][error] " + c.line + "\n"});
    EXPECT_FALSE(scaler->videoDevice || scaler->videoContext || scaler->processor || scaler->enumerator ||
                 scaler->inputView || scaler->outputView || scaler->outputTexture);
    EXPECT_FALSE(scaler->convert(source.get(), &result)) << "a failed init leaves nothing to convert with";
    EXPECT_FALSE(result);
    // The same object may be initialised again.
    ASSERT_TRUE(scaler->init(d3d.get(), 320, 240));
  }
}

TEST_F(VideoScalerTest, AFailedConversionCostsOnlyThatFrame) {
  EXPECT_FALSE(scaler->convert(nullptr, &result)) << "before init";
  ASSERT_TRUE(scaler->init(d3d.get(), 320, 240));
  CountedRef<ID3D11Texture2D> first = texture(320, 240, solid(320, 240, bgra(255, 255, 255)));
  CountedRef<ID3D11Texture2D> second = texture(640, 480, solid(640, 480, bgra(0, 0, 0)));
  EXPECT_FALSE(scaler->convert(nullptr, &result));
  ASSERT_TRUE(scaler->convert(first.get(), &result));
  ULONG references = testing_support::referenceCount(result.get());
  control::clearDebugOutput();

  control::failOnce("ID3D11VideoDevice::CreateVideoProcessorInputView", E_INVALIDARG);
  EXPECT_FALSE(scaler->convert(second.get(), &result));
  EXPECT_EQ(control::debugOutput(),
            std::vector<std::string>{"[kestrane-win][error] CreateVideoProcessorInputView failed\n"});
  EXPECT_FALSE(scaler->inputView);
  EXPECT_EQ(result.get(), scaler->outputTexture.get());
  EXPECT_EQ(testing_support::referenceCount(result.get()), references);

  control::clearDebugOutput();
  control::failOnce("ID3D11VideoContext::VideoProcessorBlt", E_FAIL);
  EXPECT_FALSE(scaler->convert(second.get(), &result));
  EXPECT_TRUE(control::debugOutput().empty()) << "a failed Blt writes no line";
  EXPECT_EQ(readBack().luma(10, 10), 235) << "the output still holds the frame before";

  ASSERT_TRUE(scaler->convert(second.get(), &result));
  EXPECT_EQ(readBack().luma(10, 10), 16);
  EXPECT_EQ(control::callCount("ID3D11VideoDevice::CreateVideoProcessorInputView"), 3u);
}

}  // namespace
