#include "test/support/desktop_frames.h"

#include <algorithm>
#include <cmath>

namespace testing_support {

namespace {

constexpr uint8_t kPadding = 0xA5;

uint32_t hash(uint32_t a, uint32_t b) {
  uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u) * 0x85EBCA77u;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  return h;
}

struct Canvas {
  Nv12Frame& f;
  void fill(int x0, int y0, int x1, int y1, uint8_t y, uint8_t cb, uint8_t cr) {
    x0 = std::clamp(x0, 0, f.width) & ~1, x1 = std::clamp(x1, 0, f.width) & ~1;
    y0 = std::clamp(y0, 0, f.height) & ~1, y1 = std::clamp(y1, 0, f.height) & ~1;
    for (int row = y0; row < y1; ++row) std::fill_n(&f.luma[size_t(row) * f.lumaPitch + size_t(x0)], x1 - x0, y);
    for (int row = y0 / 2; row < y1 / 2; ++row) {
      uint8_t* pairs = &f.chroma[size_t(row) * f.chromaPitch];
      for (int x = x0 / 2; x < x1 / 2; ++x) pairs[2 * x] = cb, pairs[2 * x + 1] = cr;
    }
  }
  void dot(int x, int y, uint8_t value) {
    if (x >= 0 && y >= 0 && x < f.width && y < f.height) f.luma[size_t(y) * f.lumaPitch + size_t(x)] = value;
  }
  // A 5x7 glyph chosen by `code`, in a cell of 8x12 pixels.
  void glyph(int x, int y, uint32_t code, uint8_t ink) {
    const uint32_t bits = hash(code, 17);
    for (int row = 0; row < 7; ++row) {
      const uint32_t line = (bits >> (row * 4 % 27)) & 0x1F;
      for (int col = 0; col < 5; ++col) {
        if (line >> col & 1) dot(x + col, y + 2 + row, ink);
      }
    }
  }
};

}  // namespace

Nv12Frame::Nv12Frame(int width, int height, size_t lumaPadding, size_t chromaPadding)
    : width(width), height(height), lumaPitch(size_t(width) + lumaPadding),
      chromaPitch(size_t(width) + chromaPadding), luma(lumaPitch * size_t(height), kPadding),
      chroma(chromaPitch * size_t(height / 2), kPadding) {}

platform::video::Nv12Picture Nv12Frame::picture() const {
  return {luma.data(), lumaPitch, chroma.data(), chromaPitch, width, height};
}

void drawDesktop(Nv12Frame& frame, int index, bool video) {
  Canvas c{frame};
  const int w = frame.width, h = frame.height;
  // Wallpaper: a diagonal luma gradient over two chroma ramps that differ, so that Cb and Cr
  // can't stand in for each other.
  for (int y = 0; y < h; ++y) {
    uint8_t* row = &frame.luma[size_t(y) * frame.lumaPitch];
    for (int x = 0; x < w; ++x) row[x] = uint8_t(40 + (x + y) * 120 / (w + h));
  }
  for (int y = 0; y < h / 2; ++y) {
    uint8_t* pairs = &frame.chroma[size_t(y) * frame.chromaPitch];
    for (int x = 0; x < w / 2; ++x) {
      pairs[2 * x] = uint8_t(90 + x * 80 / (w / 2));
      pairs[2 * x + 1] = uint8_t(170 - y * 90 / (h / 2));
    }
  }
  // A task bar along the bottom, with a clock whose digits change.
  const int bar = std::max(24, h / 20);
  c.fill(0, h - bar, w, h, 50, 140, 120);
  for (int d = 0; d < 5; ++d) c.glyph(w - 60 + d * 8, h - bar + 4, uint32_t(index / (d + 1) + d * 31), 235);

  // A terminal window on the left: text scrolls up a line every frame, and one line grows.
  const int tx = w / 16, ty = h / 12, tw = w / 2, th = h * 2 / 3;
  c.fill(tx, ty, tx + tw, ty + 20, 200, 120, 140);
  c.fill(tx, ty + 20, tx + tw, ty + th, 24, 128, 128);
  const int columns = (tw - 16) / 8, lines = (th - 36) / 12;
  for (int line = 0; line < lines; ++line) {
    const uint32_t source = uint32_t(line + index);
    const int length = int(hash(source, 3) % uint32_t(columns));
    for (int col = 0; col < length; ++col) {
      c.glyph(tx + 8 + col * 8, ty + 28 + line * 12, hash(source, uint32_t(col)), 220);
    }
  }

  // A document window that moves a few pixels every frame, with a red and a blue panel.
  const int ww = w / 3, wh = h / 2;
  const int wx = w / 2 + (index * 6) % (w / 3), wy = h / 6 + (index * 4) % (h / 4);
  c.fill(wx, wy, wx + ww, wy + 20, 170, 160, 100);
  c.fill(wx, wy + 20, wx + ww, wy + wh, 235, 128, 128);
  c.fill(wx + 8, wy + 28, wx + ww / 2, wy + wh / 3, 80, 100, 210);
  c.fill(wx + ww / 2 + 8, wy + 28, wx + ww - 8, wy + wh / 3, 60, 200, 110);
  for (int line = 0; line < (wh - wh / 3 - 20) / 12; ++line) {
    for (int col = 0; col < (ww - 16) / 8; ++col) {
      c.glyph(wx + 8 + col * 8, wy + wh / 3 + 8 + line * 12, hash(uint32_t(line), uint32_t(col)), 16);
    }
  }
  if (video) {
    const int vx = w / 2, vy = h / 2;
    for (int y = vy; y < h - bar; ++y) {
      uint8_t* row = &frame.luma[size_t(y) * frame.lumaPitch];
      for (int x = vx; x < w; ++x) {
        const double wave = std::sin((x + 3 * index) * 0.05) * std::cos((y - 2 * index) * 0.07);
        row[x] = uint8_t(120 + 60 * wave + int(hash(uint32_t(x + index), uint32_t(y)) % 24));
      }
    }
    for (int y = vy / 2; y < (h - bar) / 2; ++y) {
      uint8_t* pairs = &frame.chroma[size_t(y) * frame.chromaPitch];
      for (int x = vx / 2; x < w / 2; ++x) {
        pairs[2 * x] = uint8_t(128 + 40 * std::sin((x + index) * 0.11));
        pairs[2 * x + 1] = uint8_t(128 + 40 * std::cos((y + index) * 0.09));
      }
    }
  }
  // The pointer.
  const int px = (index * 13) % w, py = (index * 7) % h;
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x <= y / 2; ++x) c.dot(px + x, py + y, x == y / 2 ? 0 : 255);
  }
}

}  // namespace testing_support
