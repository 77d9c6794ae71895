#pragma once
#include <cstddef>
#include <cstdint>
namespace platform::video {
struct BgraImage { const uint8_t* pixels; int width; int height; size_t pitch; };   // rows of B,G,R,A bytes
struct Nv12Image { uint8_t* luma; size_t lumaPitch; uint8_t* chroma; size_t chromaPitch; int width; int height; };  // even width and height
// Scales the whole source onto the whole target (no letterbox) and converts to BT.709 studio range.
void scaleBgraToNv12(const BgraImage& source, const Nv12Image& target);
}
