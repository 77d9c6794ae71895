// Windows.Graphics.DirectX at the ABI: pixel formats, numbered as DXGI_FORMAT numbers them.
#pragma once

#include <inspectable.h>

namespace ABI {
namespace Windows {
namespace Graphics {
namespace DirectX {
// The formats a capture frame pool accepts, and Unknown.
enum DirectXPixelFormat : int {
  DirectXPixelFormat_Unknown = 0,
  DirectXPixelFormat_R16G16B16A16Float = 10,
  DirectXPixelFormat_R8G8B8A8UIntNormalized = 28,
  DirectXPixelFormat_B8G8R8A8UIntNormalized = 87,
};
}  // namespace DirectX
}  // namespace Graphics
}  // namespace Windows
}  // namespace ABI
