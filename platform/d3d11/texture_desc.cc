#include "platform/d3d11/texture_desc.h"

#include <cstring>

namespace platform::d3d11 {
namespace {

constexpr UINT kBufferOnlyBinds = D3D11_BIND_VERTEX_BUFFER | D3D11_BIND_INDEX_BUFFER | D3D11_BIND_CONSTANT_BUFFER |
                                  D3D11_BIND_STREAM_OUTPUT;
constexpr UINT kCpuAccess = D3D11_CPU_ACCESS_READ | D3D11_CPU_ACCESS_WRITE;
constexpr UINT kSharing = D3D11_RESOURCE_MISC_SHARED | D3D11_RESOURCE_MISC_SHARED_KEYEDMUTEX;
constexpr UINT kUnservedMisc = D3D11_RESOURCE_MISC_GENERATE_MIPS | D3D11_RESOURCE_MISC_TEXTURECUBE |
                               D3D11_RESOURCE_MISC_DRAWINDIRECT_ARGS | D3D11_RESOURCE_MISC_BUFFER_ALLOW_RAW_VIEWS |
                               D3D11_RESOURCE_MISC_BUFFER_STRUCTURED | D3D11_RESOURCE_MISC_TILE_POOL |
                               D3D11_RESOURCE_MISC_TILED;

bool validUsage(const D3D11_TEXTURE2D_DESC& desc, const D3D11_SUBRESOURCE_DATA* initialData) {
  if ((desc.CPUAccessFlags & ~kCpuAccess) != 0) return false;
  switch (desc.Usage) {
    case D3D11_USAGE_DEFAULT:
      return desc.CPUAccessFlags == 0;
    case D3D11_USAGE_IMMUTABLE:
      return desc.CPUAccessFlags == 0 && initialData != nullptr &&
             (desc.BindFlags & (D3D11_BIND_RENDER_TARGET | D3D11_BIND_UNORDERED_ACCESS)) == 0;
    case D3D11_USAGE_DYNAMIC:
      return desc.CPUAccessFlags == D3D11_CPU_ACCESS_WRITE && desc.BindFlags == D3D11_BIND_SHADER_RESOURCE;
    case D3D11_USAGE_STAGING:
      return desc.CPUAccessFlags != 0 && desc.BindFlags == 0;
  }
  return false;
}

bool validMisc(const D3D11_TEXTURE2D_DESC& desc) {
  UINT misc = desc.MiscFlags;
  if ((misc & kUnservedMisc) != 0) return false;
  if ((misc & kSharing) == kSharing) return false;  // one kind of sharing or the other
  if ((misc & D3D11_RESOURCE_MISC_SHARED_NTHANDLE) != 0 && (misc & kSharing) == 0) return false;
  if ((misc & kSharing) != 0 && desc.Usage != D3D11_USAGE_DEFAULT) return false;
  return true;
}

}  // namespace

HRESULT validateTextureDesc(const D3D11_TEXTURE2D_DESC& desc, const D3D11_SUBRESOURCE_DATA* initialData) {
  if (desc.Width == 0 || desc.Height == 0) return E_INVALIDARG;
  if (desc.Width > D3D11_REQ_TEXTURE2D_U_OR_V_DIMENSION || desc.Height > D3D11_REQ_TEXTURE2D_U_OR_V_DIMENSION)
    return E_INVALIDARG;
  if (desc.MipLevels != 1 || desc.ArraySize != 1) return E_INVALIDARG;
  if (desc.SampleDesc.Count != 1 || desc.SampleDesc.Quality != 0) return E_INVALIDARG;
  if (!supportedFormat(desc.Format)) return E_INVALIDARG;
  bool nv12 = desc.Format == DXGI_FORMAT_NV12;
  if (nv12 && (desc.Width % 2 != 0 || desc.Height % 2 != 0)) return E_INVALIDARG;
  if ((desc.BindFlags & (kBufferOnlyBinds | D3D11_BIND_DEPTH_STENCIL)) != 0) return E_INVALIDARG;
  if (!nv12 && (desc.BindFlags & (D3D11_BIND_DECODER | D3D11_BIND_VIDEO_ENCODER)) != 0) return E_INVALIDARG;
  if (!validUsage(desc, initialData) || !validMisc(desc)) return E_INVALIDARG;
  if (initialData != nullptr) {
    TextureLayout layout = layoutFor(desc.Format, desc.Width, desc.Height);
    if (initialData->pSysMem == nullptr) return E_INVALIDARG;
    if (initialData->SysMemPitch < desc.Width * layout.bytesPerPixel) return E_INVALIDARG;
  }
  return S_OK;
}

void fillInitialData(PixelStore& store, const D3D11_SUBRESOURCE_DATA& initialData) {
  const TextureLayout& layout = store.layout;
  const uint8_t* source = static_cast<const uint8_t*>(initialData.pSysMem);
  size_t rowBytes = size_t(layout.width) * layout.bytesPerPixel;
  size_t sourceRow = 0;
  size_t targetRow = 0;
  for (int plane = 0; plane < layout.planes(); ++plane) {
    for (uint32_t row = 0; row < layout.planeRows(plane); ++row, ++sourceRow, ++targetRow)
      std::memcpy(store.bytes.data() + targetRow * layout.rowPitch, source + sourceRow * initialData.SysMemPitch,
                  rowBytes);
  }
}

UINT formatSupport(DXGI_FORMAT format) {
  constexpr UINT kTexture = D3D11_FORMAT_SUPPORT_TEXTURE2D | D3D11_FORMAT_SUPPORT_SHADER_LOAD |
                            D3D11_FORMAT_SUPPORT_SHADER_SAMPLE | D3D11_FORMAT_SUPPORT_RENDER_TARGET |
                            D3D11_FORMAT_SUPPORT_CPU_LOCKABLE;
  switch (format) {
    case DXGI_FORMAT_B8G8R8A8_UNORM:
    case DXGI_FORMAT_B8G8R8X8_UNORM:
      return kTexture | D3D11_FORMAT_SUPPORT_DISPLAY | D3D11_FORMAT_SUPPORT_VIDEO_PROCESSOR_INPUT;
    case DXGI_FORMAT_B8G8R8A8_UNORM_SRGB:
    case DXGI_FORMAT_R8G8B8A8_UNORM:
    case DXGI_FORMAT_R8G8B8A8_UNORM_SRGB:
      return kTexture | D3D11_FORMAT_SUPPORT_DISPLAY;
    case DXGI_FORMAT_B8G8R8A8_TYPELESS:
    case DXGI_FORMAT_B8G8R8X8_TYPELESS:
    case DXGI_FORMAT_R8G8B8A8_TYPELESS:
    case DXGI_FORMAT_B8G8R8X8_UNORM_SRGB:
      return D3D11_FORMAT_SUPPORT_TEXTURE2D | D3D11_FORMAT_SUPPORT_CPU_LOCKABLE;
    case DXGI_FORMAT_NV12:
      return kTexture | D3D11_FORMAT_SUPPORT_VIDEO_PROCESSOR_OUTPUT | D3D11_FORMAT_SUPPORT_VIDEO_ENCODER;
    default:
      return 0;
  }
}

}  // namespace platform::d3d11
