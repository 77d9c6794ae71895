// NV12 textures of the software GPU holding a given picture, for tests of the encoders.
#pragma once

#include <d3d11.h>

#include "support/counted_ref.h"
#include "test/support/desktop_frames.h"

namespace testing_support {

// A default-usage NV12 texture (shader resource and render target) on `device` with the pixels of
// `frame`, given as initial data.
CountedRef<ID3D11Texture2D> nv12Texture(ID3D11Device* device, const Nv12Frame& frame);

}  // namespace testing_support
