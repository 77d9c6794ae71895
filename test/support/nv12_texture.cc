#include "test/support/nv12_texture.h"

#include <cstring>
#include <vector>

namespace testing_support {

CountedRef<ID3D11Texture2D> nv12Texture(ID3D11Device* device, const Nv12Frame& frame) {
  // Initial data of an NV12 texture is one allocation: the chroma rows follow the luma rows at
  // the same pitch.
  const size_t pitch = size_t(frame.width);
  std::vector<uint8_t> bytes(pitch * size_t(frame.height) * 3 / 2);
  for (int y = 0; y < frame.height; ++y)
    std::memcpy(&bytes[size_t(y) * pitch], &frame.luma[size_t(y) * frame.lumaPitch], pitch);
  uint8_t* chroma = &bytes[pitch * size_t(frame.height)];
  for (int y = 0; y < frame.height / 2; ++y)
    std::memcpy(chroma + size_t(y) * pitch, &frame.chroma[size_t(y) * frame.chromaPitch], pitch);
  D3D11_TEXTURE2D_DESC desc{};
  desc.Width = UINT(frame.width);
  desc.Height = UINT(frame.height);
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = DXGI_FORMAT_NV12;
  desc.SampleDesc.Count = 1;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET;
  D3D11_SUBRESOURCE_DATA data{bytes.data(), UINT(pitch), 0};
  CountedRef<ID3D11Texture2D> texture;
  if (FAILED(device->CreateTexture2D(&desc, &data, texture.put()))) texture.reset();
  return texture;
}

}  // namespace testing_support
