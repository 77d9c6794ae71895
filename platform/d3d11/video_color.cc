#include "platform/d3d11/video_color.h"

#include <algorithm>
#include <cmath>

namespace platform::d3d11 {
namespace {

using Matrix = double[3][3];

// R'G'B' to (y, cb, cr) for luma weights kr and kb.
void ycbcrMatrix(double kr, double kb, Matrix out) {
  double kg = 1 - kr - kb;
  double rows[3][3] = {{kr, kg, kb},
                       {-kr / (2 * (1 - kb)), -kg / (2 * (1 - kb)), 0.5},
                       {0.5, -kg / (2 * (1 - kr)), -kb / (2 * (1 - kr))}};
  std::copy(&rows[0][0], &rows[0][0] + 9, &out[0][0]);
}

void invert(const Matrix a, Matrix out) {
  double det = a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      int r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
      out[i][j] = (a[r0][c0] * a[r1][c1] - a[r0][c1] * a[r1][c0]) / det;
    }
}

void multiply(const Matrix a, const Matrix b, Matrix out) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) out[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
}

uint8_t code(double value) { return uint8_t(std::clamp(std::lround(value), 0L, 255L)); }

bool fullRange(const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& output) {
  return output.Nominal_Range == D3D11_VIDEO_PROCESSOR_NOMINAL_RANGE_0_255;
}

}  // namespace

ColorTransform colorTransformFor(const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& stream,
                                 const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& output) {
  ColorTransform t;
  bool studioInput = stream.RGB_Range == 1;  // input R'G'B' of 16-235 instead of 0-255
  bool bt601 = output.YCbCr_Matrix == 0;
  t.fullRangeOutput = fullRange(output);
  t.identity = !studioInput && !bt601 && !t.fullRangeOutput;
  if (t.identity) return t;
  // Studio R'G'B' read as full range leaves y = 16/255 + (219/255) y', chroma scaled alike.
  double scale = studioInput ? 255.0 / 219.0 : 1.0;
  double yShift = studioInput ? -16.0 / 219.0 : 0.0;
  Matrix change = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  if (bt601) {
    Matrix to709, from709, to601;
    ycbcrMatrix(0.2126, 0.0722, to709);
    invert(to709, from709);
    ycbcrMatrix(0.299, 0.114, to601);
    multiply(to601, from709, change);
  }
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) t.m[i][j] = change[i][j] * scale;
    t.offset[i] = change[i][0] * yShift;
  }
  return t;
}

void applyColorTransform(const ColorTransform& t, const video::Nv12Image& region) {
  if (t.identity) return;
  double yScale = t.fullRangeOutput ? 255.0 : 219.0;
  double yBase = t.fullRangeOutput ? 0.0 : 16.0;
  double cScale = t.fullRangeOutput ? 255.0 : 224.0;
  for (int by = 0; by < region.height / 2; ++by) {
    uint8_t* chroma = region.chroma + size_t(by) * region.chromaPitch;
    uint8_t* lumaRows[2] = {region.luma + size_t(2 * by) * region.lumaPitch,
                            region.luma + size_t(2 * by + 1) * region.lumaPitch};
    for (int bx = 0; bx < region.width / 2; ++bx) {
      double cb = (chroma[2 * bx] - 128.0) / 224.0;
      double cr = (chroma[2 * bx + 1] - 128.0) / 224.0;
      double ySum = 0;
      for (uint8_t* row : lumaRows) ySum += (row[2 * bx] + row[2 * bx + 1] - 32.0) / 219.0;
      double yBlock = ySum / 4;
      chroma[2 * bx] = code(128 + cScale * (t.m[1][0] * yBlock + t.m[1][1] * cb + t.m[1][2] * cr + t.offset[1]));
      chroma[2 * bx + 1] = code(128 + cScale * (t.m[2][0] * yBlock + t.m[2][1] * cb + t.m[2][2] * cr + t.offset[2]));
      for (uint8_t* row : lumaRows)
        for (int k = 0; k < 2; ++k) {
          double y = (row[2 * bx + k] - 16.0) / 219.0;
          row[2 * bx + k] = code(yBase + yScale * (t.m[0][0] * y + t.m[0][1] * cb + t.m[0][2] * cr + t.offset[0]));
        }
    }
  }
}

void backgroundCodes(const D3D11_VIDEO_COLOR& color, BOOL yCbCr, const D3D11_VIDEO_PROCESSOR_COLOR_SPACE& output,
                     uint8_t* y, uint8_t* cb, uint8_t* cr) {
  double ny, ncb, ncr;
  if (yCbCr) {
    ny = color.YCbCr.Y;
    ncb = color.YCbCr.Cb - 0.5;
    ncr = color.YCbCr.Cr - 0.5;
  } else {
    Matrix m;
    if (output.YCbCr_Matrix == 0) ycbcrMatrix(0.299, 0.114, m);
    else ycbcrMatrix(0.2126, 0.0722, m);
    double rgb[3] = {color.RGBA.R, color.RGBA.G, color.RGBA.B};
    ny = m[0][0] * rgb[0] + m[0][1] * rgb[1] + m[0][2] * rgb[2];
    ncb = m[1][0] * rgb[0] + m[1][1] * rgb[1] + m[1][2] * rgb[2];
    ncr = m[2][0] * rgb[0] + m[2][1] * rgb[1] + m[2][2] * rgb[2];
  }
  bool full = fullRange(output);
  *y = code(full ? 255 * ny : 16 + 219 * ny);
  *cb = code(128 + (full ? 255 : 224) * ncb);
  *cr = code(128 + (full ? 255 : 224) * ncr);
}

}  // namespace platform::d3d11
