// The video processor's colour spaces. The conversion kernel writes BT.709 studio range from
// full-range RGB; other stream and output colour spaces are reached from there by an affine map
// on (Y, Cb, Cr), which is exact for a change of matrix or range.
#pragma once

#include "d3d11.h"
#include "platform/video/bgra_to_nv12.h"

namespace platform::d3d11 {

struct ColorTransform {
  bool identity = true;
  double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // on normalised (y, cb, cr)
  double offset[3] = {0, 0, 0};  // added after the matrix
  bool fullRangeOutput = false;
};

ColorTransform colorTransformFor(const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& stream,
                                 const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& output);

// Rewrites an NV12 region the kernel produced. Chroma goes first, from the block's luma before
// it changes.
void applyColorTransform(const ColorTransform& transform, const video::Nv12Image& region);

// The NV12 codes of the background colour in the output colour space.
void backgroundCodes(const D3D11_VIDEO_COLOR& color, BOOL yCbCr, const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& output,
                     uint8_t* y, uint8_t* cb, uint8_t* cr);

}  // namespace platform::d3d11
