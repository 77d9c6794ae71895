#include "test/support/mf_encoder_helpers.h"

#include <cstring>

#include "platform/control/platform_control.h"
#include "test/support/software_gpu.h"

namespace control = platform::control;

namespace testing_support {

control::MachineDescription mfMachine(bool softwareClass, bool softwareTransforms, bool hardware) {
  control::MachineDescription machine = control::defaultMachine();
  machine.mfSoftwareClass = softwareClass;
  machine.mfSoftwareTransforms = softwareTransforms;
  machine.mfHardwareTransform = hardware;
  return machine;
}

CountedRef<ID3D11Texture2D> nv12Texture(ID3D11Device* device, ID3D11DeviceContext* context, const Nv12Frame& frame) {
  UINT width = UINT(frame.width), height = UINT(frame.height);
  CountedRef<ID3D11Texture2D> staging =
      makeTexture(device, stagingDesc(width, height, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_WRITE));
  CountedRef<ID3D11Texture2D> texture = makeTexture(device, textureDesc(width, height, DXGI_FORMAT_NV12));
  if (!staging || !texture) return {};
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  if (FAILED(context->Map(staging.get(), 0, D3D11_MAP_WRITE, 0, &mapped))) return {};
  auto* bytes = static_cast<uint8_t*>(mapped.pData);
  for (UINT y = 0; y < height; ++y)
    std::memcpy(bytes + size_t(y) * mapped.RowPitch, frame.luma.data() + y * frame.lumaPitch, width);
  for (UINT y = 0; y < height / 2; ++y)
    std::memcpy(bytes + size_t(height + y) * mapped.RowPitch, frame.chroma.data() + y * frame.chromaPitch, width);
  context->Unmap(staging.get(), 0);
  context->CopyResource(texture.get(), staging.get());
  return texture;
}

int linesContaining(const std::string& text) {
  int count = 0;
  for (const std::string& line : control::debugOutput()) count += line.find(text) != std::string::npos;
  return count;
}

}  // namespace testing_support
