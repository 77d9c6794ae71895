// Turns each frame into the stream's NV12 picture in one step on the GPU: the Direct3D 11 video
// processor scales the whole source onto the whole target and converts it to BT.709 studio range.
#pragma once

#include <d3d11.h>

#include <cstdint>

#include "gpu/d3d_context.h"
#include "support/counted_ref.h"

class VideoScaler {
 public:
  VideoScaler() = default;
  VideoScaler(const VideoScaler&) = delete;
  VideoScaler& operator=(const VideoScaler&) = delete;

  // On false the scaler holds nothing, so that convert refuses until an init succeeds.
  bool init(D3DContext* d3d, int32_t width, int32_t height);
  // On true `result` holds a reference of its own to `outputTexture`, which the next call
  // overwrites; on false it is unchanged.
  bool convert(ID3D11Texture2D* texture, CountedRef<ID3D11Texture2D>* result);

  // Destruction releases these in reverse order, from outputTexture to videoDevice.
  D3DContext* d3d = nullptr;
  CountedRef<ID3D11VideoDevice> videoDevice;
  CountedRef<ID3D11VideoContext> videoContext;
  CountedRef<ID3D11VideoProcessor> processor;
  CountedRef<ID3D11VideoProcessorEnumerator> enumerator;
  CountedRef<ID3D11VideoProcessorInputView> inputView;
  CountedRef<ID3D11VideoProcessorOutputView> outputView;
  CountedRef<ID3D11Texture2D> outputTexture;
  uint32_t outputWidth = 0;
  uint32_t outputHeight = 0;
  uint32_t inputWidth = 0;
  uint32_t inputHeight = 0;
  // The texture `inputView` was made on, for identity only: the view's own reference keeps it
  // alive, so the address can't pass to another texture while the view exists.
  ID3D11Texture2D* inputTexture = nullptr;

 private:
  bool createObjects();
  void releaseAll();
  bool ensureInputView(ID3D11Texture2D* texture, const D3D11_TEXTURE2D_DESC& desc);
};
