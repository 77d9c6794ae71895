// The video processor: BGRA in, NV12 out, through the rectangles and colour spaces the video
// context sets, on the device that made the views.
#include <cmath>
#include <cstring>
#include <vector>

#include "test/support/gpu_test_helpers.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

constexpr uint32_t kRed = 0xFFFF0000;
constexpr uint32_t kBlue = 0xFF0000FF;

class VideoProcessorTest : public SoftwareGpuTest {
 protected:
  void SetUp() override {
    SoftwareGpuTest::SetUp();
    d3d = makeDevice();
    ASSERT_EQ(video.queryFrom(d3d.device.get()), S_OK);
    ASSERT_EQ(videoContext.queryFrom(d3d.context.get()), S_OK);
    D3D11_VIDEO_PROCESSOR_CONTENT_DESC content{};
    content.InputFrameFormat = D3D11_VIDEO_FRAME_FORMAT_PROGRESSIVE;
    content.InputWidth = 64;
    content.InputHeight = 32;
    content.OutputWidth = 32;
    content.OutputHeight = 16;
    content.Usage = D3D11_VIDEO_USAGE_OPTIMAL_SPEED;
    ASSERT_EQ(video->CreateVideoProcessorEnumerator(&content, enumerator.put()), S_OK);
    ASSERT_EQ(video->CreateVideoProcessor(enumerator.get(), 0, processor.put()), S_OK);
    target = makeTexture(d3d.device.get(), textureDesc(32, 16, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT,
                                                       D3D11_BIND_RENDER_TARGET));
    D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC outDesc{};
    outDesc.ViewDimension = D3D11_VPOV_DIMENSION_TEXTURE2D;
    ASSERT_EQ(video->CreateVideoProcessorOutputView(target.get(), enumerator.get(), &outDesc, outputView.put()), S_OK);
  }

  // A 64x32 BGRA source whose left half is `left` and right half `right`.
  CountedRef<ID3D11Texture2D> source(uint32_t left, uint32_t right) {
    std::vector<uint32_t> pixels(64 * 32);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = (i % 64) < 32 ? left : right;
    D3D11_SUBRESOURCE_DATA data{pixels.data(), 64 * 4, 0};
    D3D11_TEXTURE2D_DESC desc = textureDesc(64, 32);
    CountedRef<ID3D11Texture2D> texture;
    EXPECT_EQ(d3d.device->CreateTexture2D(&desc, &data, texture.put()), S_OK);
    return texture;
  }

  HRESULT blt(ID3D11Texture2D* input) {
    D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC inDesc{};
    inDesc.ViewDimension = D3D11_VPIV_DIMENSION_TEXTURE2D;
    CountedRef<ID3D11VideoProcessorInputView> inputView;
    HRESULT hr = video->CreateVideoProcessorInputView(input, enumerator.get(), &inDesc, inputView.put());
    if (FAILED(hr)) return hr;
    D3D11_VIDEO_PROCESSOR_STREAM stream{};
    stream.Enable = TRUE;
    stream.pInputSurface = inputView.get();
    return videoContext->VideoProcessorBlt(processor.get(), outputView.get(), 0, 1, &stream);
  }

  void useBt709Studio() {
    D3D11_VIDEO_PROCESSOR_COLOR_SPACE in{};
    in.RGB_Range = 0;
    D3D11_VIDEO_PROCESSOR_COLOR_SPACE out{};
    out.YCbCr_Matrix = 1;
    out.Nominal_Range = D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_16_235;
    videoContext->VideoProcessorSetStreamColorSpace(processor.get(), 0, &in);
    videoContext->VideoProcessorSetOutputColorSpace(processor.get(), &out);
  }

  struct Picture {
    std::vector<uint8_t> y, uv;  // 32 x 16 and 32 x 8
    uint8_t luma(int x, int row) const { return y[row * 32 + x]; }
    uint8_t cb(int cx, int crow) const { return uv[crow * 32 + 2 * cx]; }
    uint8_t cr(int cx, int crow) const { return uv[crow * 32 + 2 * cx + 1]; }
  };

  Picture read() {
    Picture picture;
    CountedRef<ID3D11Texture2D> staging =
        makeTexture(d3d.device.get(), stagingDesc(32, 16, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_READ));
    d3d.context->CopyResource(staging.get(), target.get());
    D3D11_MAPPED_SUBRESOURCE mapped{};
    EXPECT_EQ(d3d.context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
    const uint8_t* base = static_cast<const uint8_t*>(mapped.pData);
    for (int row = 0; row < 16; ++row) picture.y.insert(picture.y.end(), base + row * mapped.RowPitch, base + row * mapped.RowPitch + 32);
    const uint8_t* chroma = base + size_t(mapped.RowPitch) * 16;
    for (int row = 0; row < 8; ++row)
      picture.uv.insert(picture.uv.end(), chroma + row * mapped.RowPitch, chroma + row * mapped.RowPitch + 32);
    d3d.context->Unmap(staging.get(), 0);
    return picture;
  }

  D3D d3d;
  CountedRef<ID3D11VideoDevice> video;
  CountedRef<ID3D11VideoContext> videoContext;
  CountedRef<ID3D11VideoProcessorEnumerator> enumerator;
  CountedRef<ID3D11VideoProcessor> processor;
  CountedRef<ID3D11Texture2D> target;
  CountedRef<ID3D11VideoProcessorOutputView> outputView;
};

TEST_F(VideoProcessorTest, ConvertsToBt709StudioRangeWhenTheColourSpacesSaySo) {
  useBt709Studio();
  CountedRef<ID3D11Texture2D> input = source(kRed, kBlue);
  ASSERT_EQ(blt(input.get()), S_OK);
  Picture out = read();
  YCbCr red = bt709Studio(kRed), blue = bt709Studio(kBlue);
  EXPECT_NEAR(out.luma(2, 8), red.y, 1.5);
  EXPECT_NEAR(out.cb(1, 4), red.cb, 1.5);
  EXPECT_NEAR(out.cr(1, 4), red.cr, 1.5);
  EXPECT_NEAR(out.luma(29, 8), blue.y, 1.5);  // the whole source scaled onto the whole target
  EXPECT_NEAR(out.cb(14, 4), blue.cb, 1.5);
  EXPECT_EQ(control::debugLayerViolations(), 0u);
}

TEST_F(VideoProcessorTest, AnOutputLeftAtItsDefaultColourSpaceGetsBt601) {
  CountedRef<ID3D11Texture2D> input = source(kRed, kRed);
  ASSERT_EQ(blt(input.get()), S_OK);
  Picture out = read();
  YCbCr bt601 = studioRange(kRed, 0.299, 0.114);
  EXPECT_NEAR(out.luma(10, 10), bt601.y, 2.0);
  EXPECT_NEAR(out.cr(5, 5), bt601.cr, 2.0);
}

TEST_F(VideoProcessorTest, FullRangeOutputSpansTheWholeByte) {
  useBt709Studio();
  D3D11_VIDEO_PROCESSOR_COLOR_SPACE full{};
  full.YCbCr_Matrix = 1;
  full.Nominal_Range = D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_0_255;
  videoContext->VideoProcessorSetOutputColorSpace(processor.get(), &full);
  CountedRef<ID3D11Texture2D> input = source(0xFFFFFFFF, 0xFF000000);
  ASSERT_EQ(blt(input.get()), S_OK);
  Picture out = read();
  EXPECT_GE(out.luma(2, 2), 254);
  EXPECT_LE(out.luma(29, 2), 1);
}

TEST_F(VideoProcessorTest, TheSourceRectangleChoosesWhatIsScaled) {
  useBt709Studio();
  RECT rightHalf{32, 0, 64, 32};
  videoContext->VideoProcessorSetStreamSourceRect(processor.get(), 0, TRUE, &rightHalf);
  CountedRef<ID3D11Texture2D> input = source(kRed, kBlue);
  ASSERT_EQ(blt(input.get()), S_OK);
  Picture out = read();
  YCbCr blue = bt709Studio(kBlue);
  EXPECT_NEAR(out.luma(0, 0), blue.y, 1.5);
  EXPECT_NEAR(out.luma(31, 15), blue.y, 1.5);
}

TEST_F(VideoProcessorTest, OnlyTheTargetRectangleIsWrittenAndTheBackgroundFillsAroundTheStream) {
  useBt709Studio();
  CountedRef<ID3D11Texture2D> white = source(0xFFFFFFFF, 0xFFFFFFFF);
  ASSERT_EQ(blt(white.get()), S_OK);
  RECT leftHalf{0, 0, 16, 16};
  RECT stream{0, 0, 8, 16};
  videoContext->VideoProcessorSetOutputTargetRect(processor.get(), TRUE, &leftHalf);
  videoContext->VideoProcessorSetStreamDestRect(processor.get(), 0, TRUE, &stream);
  CountedRef<ID3D11Texture2D> red = source(kRed, kRed);
  ASSERT_EQ(blt(red.get()), S_OK);
  Picture out = read();
  EXPECT_NEAR(out.luma(3, 3), bt709Studio(kRed).y, 1.5);  // the stream
  EXPECT_EQ(out.luma(12, 3), 16);                                     // black background in the target
  EXPECT_EQ(out.cb(6, 1), 128);
  EXPECT_EQ(out.luma(24, 3), 235);                                    // outside the target: untouched
}

// Chroma rows are half as many as luma rows: a target lower down starts at half its top there.
TEST_F(VideoProcessorTest, ATargetBelowTheTopWritesTheChromaRowsBesideItsLumaRows) {
  useBt709Studio();
  CountedRef<ID3D11Texture2D> white = source(0xFFFFFFFF, 0xFFFFFFFF);
  ASSERT_EQ(blt(white.get()), S_OK);
  RECT lowerHalf{0, 8, 32, 16};
  videoContext->VideoProcessorSetOutputTargetRect(processor.get(), TRUE, &lowerHalf);
  CountedRef<ID3D11Texture2D> red = source(kRed, kRed);
  ASSERT_EQ(blt(red.get()), S_OK);
  Picture out = read();
  YCbCr expected = bt709Studio(kRed);
  for (int row = 0; row < 16; ++row) {
    SCOPED_TRACE(row);
    if (row < 8) EXPECT_EQ(out.luma(5, row), 235);
    else EXPECT_NEAR(out.luma(5, row), expected.y, 1.5);
  }
  for (int crow = 0; crow < 8; ++crow) {
    SCOPED_TRACE(crow);
    if (crow < 4) {
      EXPECT_EQ(out.cb(2, crow), 128);
      EXPECT_EQ(out.cr(2, crow), 128);
    } else {
      EXPECT_NEAR(out.cb(2, crow), expected.cb, 1.5);
      EXPECT_NEAR(out.cr(2, crow), expected.cr, 1.5);
    }
  }
}

TEST_F(VideoProcessorTest, ViewsMustBeMadeOnTheProcessorsDevice) {
  D3D other = makeDevice();
  CountedRef<ID3D11Texture2D> foreign = makeTexture(other.device.get(), textureDesc(64, 32));
  D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC inDesc{};
  inDesc.ViewDimension = D3D11_VPIV_DIMENSION_TEXTURE2D;
  CountedRef<ID3D11VideoProcessorInputView> view;
  EXPECT_EQ(video->CreateVideoProcessorInputView(foreign.get(), enumerator.get(), &inDesc, view.put()), E_INVALIDARG);
  EXPECT_FALSE(view);
  EXPECT_EQ(control::debugLayerViolations(), 1u);
}

TEST_F(VideoProcessorTest, ArgumentsTheRuntimeRefusesAreRefused) {
  D3D11_VIDEO_PROCESSOR_CONTENT_DESC empty{};
  CountedRef<ID3D11VideoProcessorEnumerator> none;
  EXPECT_EQ(video->CreateVideoProcessorEnumerator(&empty, none.put()), E_INVALIDARG);
  UINT flags = 0;
  ASSERT_EQ(enumerator->CheckVideoProcessorFormat(DXGI_FORMAT_NV12, &flags), S_OK);
  EXPECT_TRUE(flags & D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_OUTPUT);
  ASSERT_EQ(enumerator->CheckVideoProcessorFormat(DXGI_FORMAT_B8G8R8A8_UNORM, &flags), S_OK);
  EXPECT_TRUE(flags & D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_INPUT);

  // The output must be NV12 and bindable as a render target.
  CountedRef<ID3D11Texture2D> bgra = makeTexture(d3d.device.get(), textureDesc(32, 16));
  CountedRef<ID3D11Texture2D> plainNv12 =
      makeTexture(d3d.device.get(), textureDesc(32, 16, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT, D3D11_BIND_SHADER_RESOURCE));
  D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC outDesc{};
  outDesc.ViewDimension = D3D11_VPOV_DIMENSION_TEXTURE2D;
  CountedRef<ID3D11VideoProcessorOutputView> view;
  EXPECT_EQ(video->CreateVideoProcessorOutputView(bgra.get(), enumerator.get(), &outDesc, view.put()), E_INVALIDARG);
  EXPECT_EQ(video->CreateVideoProcessorOutputView(plainNv12.get(), enumerator.get(), &outDesc, view.put()), E_INVALIDARG);

  D3D11_VIDEO_PROCESSOR_STREAM stream{};
  stream.Enable = TRUE;
  EXPECT_EQ(videoContext->VideoProcessorBlt(processor.get(), outputView.get(), 0, 1, &stream), E_INVALIDARG);
  EXPECT_EQ(videoContext->VideoProcessorBlt(processor.get(), outputView.get(), 0, 0, &stream), E_INVALIDARG);
}

TEST_F(VideoProcessorTest, AViewKeepsItsTextureAlive) {
  D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC inDesc{};
  inDesc.ViewDimension = D3D11_VPIV_DIMENSION_TEXTURE2D;
  CountedRef<ID3D11VideoProcessorInputView> view;
  {
    CountedRef<ID3D11Texture2D> input = source(kRed, kRed);
    ASSERT_EQ(video->CreateVideoProcessorInputView(input.get(), enumerator.get(), &inDesc, view.put()), S_OK);
  }
  EXPECT_EQ(control::liveObjectCount("ID3D11Texture2D"), 2);  // the target and the view's input
  CountedRef<ID3D11Resource> resource;
  view->GetResource(resource.put());
  EXPECT_TRUE(resource);
  resource.reset();
  view.reset();
  EXPECT_EQ(control::liveObjectCount("ID3D11Texture2D"), 1);
}

}  // namespace
