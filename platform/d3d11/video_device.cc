// The device's video face: the video processor and its views.
#include <string>

#include "platform/core/debug_layer.h"
#include "platform/d3d11/device.h"
#include "platform/d3d11/texture.h"
#include "platform/d3d11/video_objects.h"

namespace platform::d3d11 {
namespace {

bool inputFormat(DXGI_FORMAT format) {
  return format == DXGI_FORMAT_B8G8R8A8_UNORM || format == DXGI_FORMAT_B8G8R8X8_UNORM;
}

bool validContentSize(UINT width, UINT height) {
  return width > 0 && height > 0 && width <= D3D11_REQ_TEXTURE2D_U_OR_V_DIMENSION &&
         height <= D3D11_REQ_TEXTURE2D_U_OR_V_DIMENSION;
}

}  // namespace

HRESULT Device::CreateVideoProcessorEnumerator(const D3D11_VIDEO_PROCESSOR_CONTENT_DESC* pDesc,
                                               ID3D11VideoProcessorEnumerator** ppEnum) {
  if (ppEnum != nullptr) *ppEnum = nullptr;
  if (HRESULT hr = enter("ID3D11VideoDevice::CreateVideoProcessorEnumerator"); hr != S_OK) return hr;
  if (pDesc == nullptr || ppEnum == nullptr) return E_INVALIDARG;
  if (!validContentSize(pDesc->InputWidth, pDesc->InputHeight) ||
      !validContentSize(pDesc->OutputWidth, pDesc->OutputHeight))
    return E_INVALIDARG;
  handOut(new VideoProcessorEnumerator(this, *pDesc), ppEnum);
  return S_OK;
}

HRESULT Device::CreateVideoProcessor(ID3D11VideoProcessorEnumerator* pEnum, UINT RateConversionIndex,
                                     ID3D11VideoProcessor** ppVideoProcessor) {
  constexpr const char* call = "ID3D11VideoDevice::CreateVideoProcessor";
  if (ppVideoProcessor != nullptr) *ppVideoProcessor = nullptr;
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  VideoProcessorEnumerator* enumerator = VideoProcessorEnumerator::from(pEnum);
  if (enumerator == nullptr || ppVideoProcessor == nullptr || !enumerator->usableIn(call)) return E_INVALIDARG;
  if (enumerator->device() != this) {
    debugLayerViolation(std::string(call) + ": the enumerator was created on another device");
    return E_INVALIDARG;
  }
  if (RateConversionIndex != 0) return E_INVALIDARG;
  handOut(new VideoProcessor(this, enumerator->contentDesc), ppVideoProcessor);
  return S_OK;
}

namespace {

// The texture and enumerator arguments of a view call, checked as the debug layer checks them.
Texture* viewTexture(Device* device, const char* call, ID3D11Resource* resource, ID3D11VideoProcessorEnumerator* pEnum) {
  Texture* texture = Texture::from(resource);
  VideoProcessorEnumerator* enumerator = VideoProcessorEnumerator::from(pEnum);
  if (texture == nullptr || enumerator == nullptr) return nullptr;
  if (!texture->usableIn(call) || !enumerator->usableIn(call)) return nullptr;
  if (texture->device() != device) {
    debugLayerViolation(std::string(call) + ": the texture was created on another device");
    return nullptr;
  }
  if (enumerator->device() != device) {
    debugLayerViolation(std::string(call) + ": the enumerator was created on another device");
    return nullptr;
  }
  return texture;
}

}  // namespace

HRESULT Device::CreateVideoProcessorInputView(ID3D11Resource* pResource, ID3D11VideoProcessorEnumerator* pEnum,
                                              const D3D11_VIDEO_PROCESSOR_INPUT_VIEW_DESC* pDesc,
                                              ID3D11VideoProcessorInputView** ppVIView) {
  constexpr const char* call = "ID3D11VideoDevice::CreateVideoProcessorInputView";
  if (ppVIView != nullptr) *ppVIView = nullptr;
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  Texture* texture = viewTexture(this, call, pResource, pEnum);
  if (texture == nullptr || pDesc == nullptr || ppVIView == nullptr) return E_INVALIDARG;
  if (pDesc->ViewDimension != D3D11_VPIV_DIMENSION_TEXTURE2D || pDesc->FourCC != 0 ||
      pDesc->Texture2D.MipSlice != 0 || pDesc->Texture2D.ArraySlice != 0)
    return E_INVALIDARG;
  if (!inputFormat(texture->desc().Format) || texture->desc().Usage == D3D11_USAGE_STAGING) return E_INVALIDARG;
  handOut(new VideoProcessorInputView(this, texture, *pDesc), ppVIView);
  return S_OK;
}

HRESULT Device::CreateVideoProcessorOutputView(ID3D11Resource* pResource, ID3D11VideoProcessorEnumerator* pEnum,
                                               const D3D11_VIDEO_PROCESSOR_OUTPUT_VIEW_DESC* pDesc,
                                               ID3D11VideoProcessorOutputView** ppVPOView) {
  constexpr const char* call = "ID3D11VideoDevice::CreateVideoProcessorOutputView";
  if (ppVPOView != nullptr) *ppVPOView = nullptr;
  if (HRESULT hr = enter(call); hr != S_OK) return hr;
  Texture* texture = viewTexture(this, call, pResource, pEnum);
  if (texture == nullptr || pDesc == nullptr || ppVPOView == nullptr) return E_INVALIDARG;
  if (pDesc->ViewDimension != D3D11_VPOV_DIMENSION_TEXTURE2D || pDesc->Texture2D.MipSlice != 0) return E_INVALIDARG;
  // The processor writes as a render target does.
  if (texture->desc().Format != DXGI_FORMAT_NV12 || (texture->desc().BindFlags & D3D11_BIND_RENDER_TARGET) == 0)
    return E_INVALIDARG;
  handOut(new VideoProcessorOutputView(this, texture, *pDesc), ppVPOView);
  return S_OK;
}

UINT Device::GetVideoDecoderProfileCount() {
  enterVoid("ID3D11VideoDevice::GetVideoDecoderProfileCount");
  return 0;  // this GPU decodes nothing
}

HRESULT Device::GetVideoDecoderProfile(UINT, GUID*) {
  if (HRESULT hr = enter("ID3D11VideoDevice::GetVideoDecoderProfile"); hr != S_OK) return hr;
  return E_INVALIDARG;
}

HRESULT Device::CheckVideoDecoderFormat(const GUID*, DXGI_FORMAT, BOOL* pSupported) {
  if (HRESULT hr = enter("ID3D11VideoDevice::CheckVideoDecoderFormat"); hr != S_OK) return hr;
  if (pSupported != nullptr) *pSupported = FALSE;
  return E_INVALIDARG;
}

}  // namespace platform::d3d11
