// The synthetic desktop's pictures: what an output shows at each frame of its animation.
#pragma once

#include <cstdint>

namespace platform::desktop {

// Draws animation frame `frameIndex` into a BGRA image of `width` x `height` with rows `rowPitch`
// bytes apart. The same picture as control::syntheticPixel, pixel for pixel.
void drawSyntheticFrame(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint64_t frameIndex);
// Turns frame `from`, already in the image, into frame `to`: the same result as drawing `to` whole,
// for a fraction of the writes.
void drawSyntheticChange(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint64_t from,
                         uint64_t to);
void fillSolid(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint32_t colour);

}  // namespace platform::desktop
