#include "platform/desktop/synthetic_image.h"

#include <algorithm>
#include <cstring>

#include "platform/control/desktop_control.h"

namespace platform::desktop {
namespace {

constexpr uint32_t kBackground = 0xFF1E2A38;
constexpr uint32_t kBar = 0xFFE0C040;
constexpr uint32_t kBarWidth = 32;
constexpr uint32_t kBarStep = 16;  // pixels the bar moves per frame
constexpr uint32_t kCell = 8;      // the frame index cells are kCell x kCell
constexpr uint32_t kCells = 32;
constexpr uint32_t kStripeRows = 64;  // a band of fine scrolling texture, so an encoder has work
constexpr uint32_t kTextureLight = 0xFF9098A0;
constexpr uint32_t kTextureDark = 0xFF303840;

uint32_t barLeft(uint64_t frameIndex, uint32_t width) { return uint32_t((frameIndex * kBarStep) % width); }

bool inStripe(uint32_t y, uint32_t height) { return y >= height / 2 && y < height / 2 + kStripeRows; }

uint32_t stripePixel(uint64_t frameIndex, uint32_t x, uint32_t y) {
  return ((x / 4 + y / 4 + frameIndex) & 1) != 0 ? kTextureLight : kTextureDark;
}

uint32_t cellPixel(uint64_t frameIndex, uint32_t x) {
  return ((frameIndex >> (x / kCell)) & 1) != 0 ? 0xFFFFFFFF : 0xFF000000;
}

void fillRow(uint32_t* row, uint32_t count, uint32_t colour) { std::fill(row, row + count, colour); }

}  // namespace

void fillSolid(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint32_t colour) {
  for (uint32_t y = 0; y < height; ++y) fillRow(reinterpret_cast<uint32_t*>(bytes + size_t(y) * rowPitch), width, colour);
}

namespace {

// Row `y` of animation frame `frameIndex`, whole.
void drawRow(uint32_t* row, uint32_t y, uint32_t width, uint32_t height, uint64_t frameIndex) {
  if (inStripe(y, height)) {
    for (uint32_t x = 0; x < width; ++x) row[x] = stripePixel(frameIndex, x, y);
  } else {
    fillRow(row, width, kBackground);
  }
  uint32_t bar = barLeft(frameIndex, width);
  fillRow(row + bar, std::min(width, bar + kBarWidth) - bar, kBar);
  if (y < kCell)
    for (uint32_t x = 0, end = std::min(width, kCells * kCell); x < end; ++x) row[x] = cellPixel(frameIndex, x);
}

}  // namespace

void drawSyntheticFrame(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint64_t frameIndex) {
  if (width == 0 || height == 0) return;
  for (uint32_t y = 0; y < height; ++y)
    drawRow(reinterpret_cast<uint32_t*>(bytes + size_t(y) * rowPitch), y, width, height, frameIndex);
}

void drawSyntheticChange(uint8_t* bytes, uint32_t rowPitch, uint32_t width, uint32_t height, uint64_t from,
                         uint64_t to) {
  if (width == 0 || height == 0) return;
  uint32_t oldBar = barLeft(from, width);
  uint32_t newBar = barLeft(to, width);
  for (uint32_t y = 0; y < height; ++y) {
    uint32_t* row = reinterpret_cast<uint32_t*>(bytes + size_t(y) * rowPitch);
    if (y < kCell || inStripe(y, height)) {
      drawRow(row, y, width, height, to);
      continue;
    }
    // Elsewhere the frames differ only where the bar was and where it is.
    fillRow(row + oldBar, std::min(width, oldBar + kBarWidth) - oldBar, kBackground);
    fillRow(row + newBar, std::min(width, newBar + kBarWidth) - newBar, kBar);
  }
}

}  // namespace platform::desktop

namespace platform::control {

uint32_t syntheticPixel(uint64_t frameIndex, uint32_t width, uint32_t height, uint32_t x, uint32_t y) {
  using namespace desktop;
  if (x >= width || y >= height) return 0;
  if (y < kCell && x < kCells * kCell) return cellPixel(frameIndex, x);
  uint32_t bar = barLeft(frameIndex, width);
  if (x >= bar && x < bar + kBarWidth) return kBar;
  return inStripe(y, height) ? stripePixel(frameIndex, x, y) : kBackground;
}

uint32_t frameIndexInCells(const uint32_t* pixels, uint32_t width) {
  uint32_t index = 0;
  for (uint32_t cell = 0; cell < desktop::kCells && (cell + 1) * desktop::kCell <= width; ++cell)
    if ((pixels[cell * desktop::kCell + desktop::kCell / 2] & 0x00FFFFFF) == 0x00FFFFFF) index |= 1u << cell;
  return index;
}

}  // namespace platform::control
