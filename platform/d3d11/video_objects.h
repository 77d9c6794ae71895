// The video processor's objects: the enumerator (what the processor is asked to do), the
// processor with its stream and output state, and the input and output views.
#pragma once

#include <mutex>

#include "d3d11.h"
#include "platform/core/com_object.h"
#include "platform/d3d11/device_object.h"

namespace platform::d3d11 {

class Texture;

// One input stream is served: that is all the system needs, and the caps say so.
constexpr UINT kVideoInputStreams = 1;

class VideoProcessorEnumerator final : public ID3D11VideoProcessorEnumerator, public DeviceObject {
 public:
  VideoProcessorEnumerator(Device* device, const D3D11_VIDEO_PROCESSOR_CONTENT_DESC& desc);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  HRESULT STDMETHODCALLTYPE GetVideoProcessorContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pContentDesc) override;
  HRESULT STDMETHODCALLTYPE CheckVideoProcessorFormat(DXGI_FORMAT Format, UINT* pFlags) override;
  HRESULT STDMETHODCALLTYPE GetVideoProcessorCaps(D3D11_VIDEO_PROCESSOR_CAPS* pCaps) override;
  HRESULT STDMETHODCALLTYPE GetVideoProcessorRateConversionCaps(
      UINT TypeIndex, D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) override;
  HRESULT STDMETHODCALLTYPE GetVideoProcessorCustomRate(UINT TypeIndex, UINT CustomRateIndex,
                                                        D3D11_VIDEO_PROCESSOR_CUSTOM_RATE* pRate) override;
  HRESULT STDMETHODCALLTYPE GetVideoProcessorFilterRange(D3D11_VIDEO_PROCESSOR_FILTER Filter,
                                                         D3D11_VIDEO_PROCESSOR_FILTER_RANGE* pRange) override;

  static VideoProcessorEnumerator* from(ID3D11VideoProcessorEnumerator* enumerator);
  const D3D11_VIDEO_PROCESSOR_CONTENT_DESC contentDesc;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override { releaseDeviceObject(); }
};

// What the video context's Set calls leave on a processor for its one stream and its output.
struct VideoStreamState {
  D3D11_VIDEO_FRAME_FORMAT frameFormat = D3D11_VIDEO_FRAME_FORMAT_PROGRESSIVE;
  D3D11_VIDEO_PROCESSOR_COLOR_SPACE colorSpace{};  // full-range RGB by default
  BOOL sourceRectEnabled = FALSE;
  RECT sourceRect{};
  BOOL destRectEnabled = FALSE;
  RECT destRect{};
  D3D11_VIDEO_PROCESSOR_OUTPUT_RATE outputRate = D3D11_VIDEO_PROCESSOR_OUTPUT_RATE_NORMAL;
  BOOL repeatFrame = FALSE;
  DXGI_RATIONAL customRate{};
  BOOL alphaEnabled = FALSE;
  FLOAT alpha = 1.0f;
  BOOL lumaKeyEnabled = FALSE;
  FLOAT lumaKeyLower = 0.0f;
  FLOAT lumaKeyUpper = 0.0f;
  BOOL autoProcessing = TRUE;
  BOOL rotationEnabled = FALSE;
  D3D11_VIDEO_PROCESSOR_ROTATION rotation = D3D11_VIDEO_PROCESSOR_ROTATION_IDENTITY;
};

struct VideoOutputState {
  BOOL targetRectEnabled = FALSE;
  RECT targetRect{};
  BOOL backgroundYCbCr = FALSE;
  D3D11_VIDEO_COLOR background{};  // opaque black
  D3D11_VIDEO_PROCESSOR_COLOR_SPACE colorSpace{};  // BT.601, as on Windows until it is set
  D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE alphaFillMode = D3D11_VIDEO_PROCESSOR_ALPHA_FILL_MODE_OPAQUE;
  UINT alphaFillStream = 0;
  BOOL constrictionEnabled = FALSE;
  SIZE constriction{};
  BOOL stereo = FALSE;
};

class VideoProcessor final : public ID3D11VideoProcessor, public DeviceObject {
 public:
  VideoProcessor(Device* device, const D3D11_VIDEO_PROCESSOR_CONTENT_DESC& desc);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  void STDMETHODCALLTYPE GetContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc) override;
  void STDMETHODCALLTYPE GetRateConversionCaps(D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) override;

  static VideoProcessor* from(ID3D11VideoProcessor* processor);

  std::mutex mutex;  // guards the state below
  VideoStreamState stream;
  VideoOutputState output;

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override { releaseDeviceObject(); }

  const D3D11_VIDEO_PROCESSOR_CONTENT_DESC contentDesc;
};

// A view keeps its texture alive, as every Direct3D view holds its resource.
class VideoProcessorInputView final : public ID3D11VideoProcessorInputView, public DeviceObject {
 public:
  VideoProcessorInputView(Device* device, Texture* texture, const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC& desc);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  void STDMETHODCALLTYPE GetResource(ID3D11Resource** ppResource) override;
  void STDMETHODCALLTYPE GetDesc(D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc) override;

  static VideoProcessorInputView* from(ID3D11VideoProcessorInputView* view);
  Texture* texture() const { return resource.get(); }

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  Pin<Texture> resource;
  const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC viewDesc;
};

class VideoProcessorOutputView final : public ID3D11VideoProcessorOutputView, public DeviceObject {
 public:
  VideoProcessorOutputView(Device* device, Texture* texture, const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC& desc);
  PLATFORM_IUNKNOWN_METHODS
  PLATFORM_DEVICE_CHILD_METHODS

  void STDMETHODCALLTYPE GetResource(ID3D11Resource** ppResource) override;
  void STDMETHODCALLTYPE GetDesc(D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc) override;

  static VideoProcessorOutputView* from(ID3D11VideoProcessorOutputView* view);
  Texture* texture() const { return resource.get(); }

 private:
  void* interfaceFor(REFIID riid) override;
  void releaseResources() override;

  Pin<Texture> resource;
  const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC viewDesc;
};

}  // namespace platform::d3d11
