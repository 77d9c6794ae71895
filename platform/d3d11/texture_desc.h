// What CreateTexture2D accepts, and how initial data lands in a new texture.
#pragma once

#include "d3d11.h"
#include "platform/d3d11/pixel_store.h"

namespace platform::d3d11 {

// S_OK, or E_INVALIDARG where the runtime refuses the description. Beyond the runtime's rules,
// the platform offers single-level, single-slice, single-sample textures only.
HRESULT validateTextureDesc(const D3D11_TEXTURE2D_DESC& desc, const D3D11_SUBRESOURCE_DATA* initialData);

// Copies rows of `initialData` (planes one after the other at SysMemPitch * Height, as NV12's
// initial data is laid out) into `store`.
void fillInitialData(PixelStore& store, const D3D11_SUBRESOURCE_DATA& initialData);

// D3D11_FORMAT_SUPPORT flags for `format`; zero for formats this GPU lacks.
UINT formatSupport(DXGI_FORMAT format);

}  // namespace platform::d3d11
