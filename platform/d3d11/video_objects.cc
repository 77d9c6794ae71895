#include "platform/d3d11/video_objects.h"

#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"

namespace platform::d3d11 {

VideoProcessorEnumerator::VideoProcessorEnumerator(Device* device, const D3D11_VIDEO_PROCESSOR_CONTENT_DESC& desc)
    : DeviceObject("ID3D11VideoProcessorEnumerator", device), contentDesc(desc) {}

VideoProcessorEnumerator* VideoProcessorEnumerator::from(ID3D11VideoProcessorEnumerator* enumerator) {
  return enumerator == nullptr ? nullptr : dynamic_cast<VideoProcessorEnumerator*>(enumerator);
}

void* VideoProcessorEnumerator::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11VideoProcessorEnumerator)
    return static_cast<ID3D11VideoProcessorEnumerator*>(this);
  return nullptr;
}

HRESULT VideoProcessorEnumerator::GetVideoProcessorContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pContentDesc) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::GetVideoProcessorContentDesc"); hr != S_OK) return hr;
  if (pContentDesc == nullptr) return E_INVALIDARG;
  *pContentDesc = contentDesc;
  return S_OK;
}

// BGRA goes in, NV12 comes out: the one conversion the system asks of the processor.
HRESULT VideoProcessorEnumerator::CheckVideoProcessorFormat(DXGI_FORMAT Format, UINT* pFlags) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::CheckVideoProcessorFormat"); hr != S_OK) return hr;
  if (pFlags == nullptr) return E_INVALIDARG;
  *pFlags = 0;
  if (Format == DXGI_FORMAT_B8G8R8A8_UNORM || Format == DXGI_FORMAT_B8G8R8X8_UNORM)
    *pFlags = D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_INPUT;
  if (Format == DXGI_FORMAT_NV12) *pFlags = D3D11_VIDEO_PROCESSOR_FORMAT_SUPPORT_OUTPUT;
  return S_OK;
}

HRESULT VideoProcessorEnumerator::GetVideoProcessorCaps(D3D11_VIDEO_PROCESSOR_CAPS* pCaps) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::GetVideoProcessorCaps"); hr != S_OK) return hr;
  if (pCaps == nullptr) return E_INVALIDARG;
  *pCaps = {};
  pCaps->DeviceCaps = D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_RGB_RANGE_CONVERSION |
                      D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_YCbCr_MATRIX_CONVERSION |
                      D3D11_VIDEO_PROCESSOR_DEVICE_CAPS_NOMINAL_RANGE;
  pCaps->FeatureCaps = D3D11_VIDEO_PROCESSOR_FEATURE_CAPS_ALPHA_FILL;
  pCaps->RateConversionCapsCount = 1;
  pCaps->MaxInputStreams = kVideoInputStreams;
  pCaps->MaxStreamStates = kVideoInputStreams;
  return S_OK;
}

HRESULT VideoProcessorEnumerator::GetVideoProcessorRateConversionCaps(UINT TypeIndex,
                                                                      D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::GetVideoProcessorRateConversionCaps"); hr != S_OK) return hr;
  if (pCaps == nullptr || TypeIndex != 0) return E_INVALIDARG;
  *pCaps = {};
  return S_OK;
}

HRESULT VideoProcessorEnumerator::GetVideoProcessorCustomRate(UINT, UINT, D3D11_VIDEO_PROCESSOR_CUSTOM_RATE*) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::GetVideoProcessorCustomRate"); hr != S_OK) return hr;
  return E_INVALIDARG;  // there are no custom rates
}

HRESULT VideoProcessorEnumerator::GetVideoProcessorFilterRange(D3D11_VIDEO_PROCESSOR_FILTER,
                                                               D3D11_VIDEO_PROCESSOR_FILTER_RANGE*) {
  if (HRESULT hr = enter("ID3D11VideoProcessorEnumerator::GetVideoProcessorFilterRange"); hr != S_OK) return hr;
  return E_INVALIDARG;  // no filter is offered
}

VideoProcessor::VideoProcessor(Device* device, const D3D11_VIDEO_PROCESSOR_CONTENT_DESC& desc)
    : DeviceObject("ID3D11VideoProcessor", device), contentDesc(desc) {}

VideoProcessor* VideoProcessor::from(ID3D11VideoProcessor* processor) {
  return processor == nullptr ? nullptr : dynamic_cast<VideoProcessor*>(processor);
}

void* VideoProcessor::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11VideoProcessor)
    return static_cast<ID3D11VideoProcessor*>(this);
  return nullptr;
}

void VideoProcessor::GetContentDesc(D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc) {
  if (enterVoid("ID3D11VideoProcessor::GetContentDesc") && pDesc != nullptr) *pDesc = contentDesc;
}

void VideoProcessor::GetRateConversionCaps(D3D11_VIDEO_PROCESSOR_RATE_CONVERSION_CAPS* pCaps) {
  if (enterVoid("ID3D11VideoProcessor::GetRateConversionCaps") && pCaps != nullptr) *pCaps = {};
}

VideoProcessorInputView::VideoProcessorInputView(Device* device, Texture* texture,
                                                 const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC& desc)
    : DeviceObject("ID3D11VideoProcessorInputView", device), resource(texture), viewDesc(desc) {}

VideoProcessorInputView* VideoProcessorInputView::from(ID3D11VideoProcessorInputView* view) {
  return view == nullptr ? nullptr : dynamic_cast<VideoProcessorInputView*>(view);
}

void* VideoProcessorInputView::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11View ||
      riid == IID_ID3D11VideoProcessorInputView)
    return static_cast<ID3D11VideoProcessorInputView*>(this);
  return nullptr;
}

void VideoProcessorInputView::releaseResources() {
  resource.reset();
  releaseDeviceObject();
}

void VideoProcessorInputView::GetResource(ID3D11Resource** ppResource) {
  if (ppResource != nullptr) *ppResource = nullptr;
  if (enterVoid("ID3D11View::GetResource") && ppResource != nullptr) handOut(resource.get(), ppResource);
}

void VideoProcessorInputView::GetDesc(D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc) {
  if (enterVoid("ID3D11VideoProcessorInputView::GetDesc") && pDesc != nullptr) *pDesc = viewDesc;
}

VideoProcessorOutputView::VideoProcessorOutputView(Device* device, Texture* texture,
                                                   const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC& desc)
    : DeviceObject("ID3D11VideoProcessorOutputView", device), resource(texture), viewDesc(desc) {}

VideoProcessorOutputView* VideoProcessorOutputView::from(ID3D11VideoProcessorOutputView* view) {
  return view == nullptr ? nullptr : dynamic_cast<VideoProcessorOutputView*>(view);
}

void* VideoProcessorOutputView::interfaceFor(REFIID riid) {
  if (riid == IID_IUnknown || riid == IID_ID3D11DeviceChild || riid == IID_ID3D11View ||
      riid == IID_ID3D11VideoProcessorOutputView)
    return static_cast<ID3D11VideoProcessorOutputView*>(this);
  return nullptr;
}

void VideoProcessorOutputView::releaseResources() {
  resource.reset();
  releaseDeviceObject();
}

void VideoProcessorOutputView::GetResource(ID3D11Resource** ppResource) {
  if (ppResource != nullptr) *ppResource = nullptr;
  if (enterVoid("ID3D11View::GetResource") && ppResource != nullptr) handOut(resource.get(), ppResource);
}

void VideoProcessorOutputView::GetDesc(D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc) {
  if (enterVoid("ID3D11VideoProcessorOutputView::GetDesc") && pDesc != nullptr) *pDesc = viewDesc;
}

}  // namespace platform::d3d11
