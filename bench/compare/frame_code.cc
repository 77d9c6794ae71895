#include "bench/compare/frame_code.h"

#include <cstdlib>

namespace frame_code {
namespace {

// Studio-range luma is 16 for black and 235 for white; a block whose mean sits near the middle
// was smeared by the encoder and is not trusted either way.
constexpr int kThreshold = 126, kMargin = 50;

uint8_t crc8(const uint8_t* bytes, size_t size) {
  uint8_t crc = 0;
  for (size_t i = 0; i < size; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) crc = uint8_t(crc & 0x80 ? (crc << 1) ^ 0x07 : crc << 1);
  }
  return crc;
}

// The byte each row carries.
void rows(uint64_t value, uint8_t out[kRows]) {
  out[0] = 0xAA;
  for (int i = 0; i < 8; ++i) out[1 + i] = uint8_t(value >> (56 - 8 * i));
  out[kRows - 1] = crc8(out + 1, 8);
}

}  // namespace

void paint(uint64_t value, uint32_t* pixels, size_t pitch) {
  uint8_t bytes[kRows];
  rows(value, bytes);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const bool white = (bytes[y / kBlock] >> (7 - x / kBlock)) & 1;
      pixels[size_t(y) * pitch + size_t(x)] = white ? 0xFFFFFF : 0x000000;
    }
  }
}

bool read(const uint8_t* luma, size_t pitch, int left, int top, uint64_t* value) {
  uint8_t bytes[kRows] = {};
  for (int row = 0; row < kRows; ++row) {
    for (int column = 0; column < kColumns; ++column) {
      // The block's inner 8x8: its edges carry the most ringing.
      int sum = 0;
      for (int y = 4; y < 12; ++y) {
        const uint8_t* line = luma + size_t(top + row * kBlock + y) * pitch + size_t(left + column * kBlock);
        for (int x = 4; x < 12; ++x) sum += line[x];
      }
      const int mean = sum / 64;
      if (std::abs(mean - kThreshold) < kMargin) return false;
      if (mean > kThreshold) bytes[row] |= uint8_t(0x80 >> column);
    }
  }
  uint8_t expected[kRows];
  uint64_t decoded = 0;
  for (int i = 0; i < 8; ++i) decoded = decoded << 8 | bytes[1 + i];
  rows(decoded, expected);
  if (bytes[0] != expected[0] || bytes[kRows - 1] != expected[kRows - 1]) return false;
  *value = decoded;
  return true;
}

}  // namespace frame_code
