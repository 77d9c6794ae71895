// The time code the clock painter draws and the delay receiver reads back: a 64-bit CLOCK_MONOTONIC
// time in microseconds as a grid of black and white 16x16 blocks, aligned to the encoder's
// macroblocks so that H.264 at any sane bit rate keeps every block's side.
//   row 0      guard: white, black, white, ... (a picture without it carries no code)
//   rows 1..8  the value's bytes, most significant first, one bit per block, white = 1
//   row 9      CRC-8 of those bytes
#pragma once

#include <cstddef>
#include <cstdint>

namespace frame_code {

constexpr int kBlock = 16;
constexpr int kColumns = 8, kRows = 10;
constexpr int kWidth = kColumns * kBlock, kHeight = kRows * kBlock;
// Top right of a 1920-wide picture, on the macroblock grid.
constexpr int kLeft = 1920 - kWidth - kBlock, kTop = kBlock;

// The code as pixels 0x00RRGGBB, kWidth x kHeight, rows `pitch` pixels apart.
void paint(uint64_t value, uint32_t* pixels, size_t pitch);

// Reads the code whose top left is at (left, top) of an 8-bit luma plane. False when the guard,
// a block's level or the check doesn't hold: the picture has no readable code there.
bool read(const uint8_t* luma, size_t pitch, int left, int top, uint64_t* value);

}  // namespace frame_code
