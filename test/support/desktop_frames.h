// NV12 pictures of a desktop that changes every frame: panels of flat colour and gradients, a
// window that moves, a terminal whose text scrolls and a line being typed, for tests and
// benchmarks of the encoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/video/h264_encoder.h"

namespace testing_support {

// Planes owned here. Rows may be padded past the width; padding holds bytes no picture has.
struct Nv12Frame {
  Nv12Frame(int width, int height, size_t lumaPadding = 0, size_t chromaPadding = 0);
  platform::video::Nv12Picture picture() const;

  int width, height;
  size_t lumaPitch, chromaPitch;
  std::vector<uint8_t> luma, chroma;
};

// Draws frame `index` of the desktop over the whole of `frame` (padding left alone). With
// `video`, a quarter of the screen plays a film of fine, moving texture that no bitrate pays for
// in full, so that the rate control has something to do.
void drawDesktop(Nv12Frame& frame, int index, bool video = false);

}  // namespace testing_support
