// Row kernels written once over a vector type S (S::V of S::kBytes bytes, each 16-byte half
// worked on its own, as x86 unpacks and packs do). Each instruction set's file includes this
// after choosing its target; everything here is internal to that file.
//
// S provides: load, store, splat32, zero, bitAnd, bitOr, highBytes (each 16-bit lane >> 8), add16,
// sub16, add32, madd (pmaddwd), lerp16 (a + (b - a) * f / 2^15 rounded, on 16-bit lanes),
// shiftRight32 (arithmetic, by a count register), packs32, packus16, unpackLow8/unpackHigh8/
// unpackLow32/unpackHigh32, evenDwords/oddDwords of a pair, and inHalfOrder (puts 4-byte units
// taken alternately from the two halves back in memory order).
#pragma once
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/video/row_kernels.h"

namespace platform::video {
namespace {

constexpr int roundToInt(double value) { return value >= 0 ? int(value + 0.5) : -int(-value + 0.5); }

// BT.709 studio range. Luma weights at 15 fractional bits; chroma weights apply to the sum of a
// 2x2 block (two more bits). Each set sums exactly to its ideal total, so white is 235 and greys
// have neutral chroma.
constexpr double kRed = 0.2126, kBlue = 0.0722, kGreen = 1.0 - kRed - kBlue;
constexpr double kLumaRange = 219.0 / 255.0, kChromaRange = 224.0 / 255.0;
constexpr double kOne = 1 << 15;
constexpr int kLumaR = roundToInt(kRed * kLumaRange * kOne);
constexpr int kLumaB = roundToInt(kBlue * kLumaRange * kOne);
constexpr int kLumaG = roundToInt(kLumaRange * kOne) - kLumaR - kLumaB;
constexpr int kCbR = roundToInt(-kRed / (2 * (1 - kBlue)) * kChromaRange * kOne);
constexpr int kCbB = roundToInt(0.5 * kChromaRange * kOne);
constexpr int kCbG = -kCbR - kCbB;
constexpr int kCrR = roundToInt(0.5 * kChromaRange * kOne);
constexpr int kCrB = roundToInt(-kBlue / (2 * (1 - kRed)) * kChromaRange * kOne);
constexpr int kCrG = -kCrR - kCrB;
// Alpha is set to 255 on loading, so that its lane carries each sum's offset and rounding: 16.5
// levels of luma, and 128.5 of chroma over a block's four alphas (off by under 0.004 of a level).
constexpr int kLumaA = roundToInt((16.5 * kOne) / 255);
constexpr int kChromaA = roundToInt((128.5 * 4 * kOne) / 1020);

// Two int16 values as the int32 pmaddwd pairs them from: `low` weighs the even 16-bit lane.
constexpr int32_t wordPair(int low, int high) { return int32_t(uint32_t(uint16_t(high)) << 16 | uint16_t(low)); }

// Pixels per convertChunk: four vectors of pixels from each row.
template <class S>
constexpr int kChunkPixels = S::kBytes;

// kChunkPixels<S> pixels of two rows, two vectors of each row at a time. A pixel's bytes B,G,R,A
// read as 16-bit lanes masked to (B,R) and shifted to (G,A), so pmaddwd weighs them in place.
template <class S>
inline void convertChunk(const uint8_t* top, const uint8_t* bottom, uint8_t* topLuma, uint8_t* bottomLuma,
                         uint8_t* chroma) {
  using V = typename S::V;
  const V lowBytes = S::splat32(0x00FF00FF), opaque = S::splat32(int32_t(0xFF000000));
  const V lumaBr = S::splat32(wordPair(kLumaB, kLumaR)), lumaGa = S::splat32(wordPair(kLumaG, kLumaA));
  const V cbBr = S::splat32(wordPair(kCbB, kCbR)), cbGa = S::splat32(wordPair(kCbG, kChromaA));
  const V crBr = S::splat32(wordPair(kCrB, kCrR)), crGa = S::splat32(wordPair(kCrG, kChromaA));
  const __m128i lumaShift = _mm_cvtsi32_si128(15), chromaShift = _mm_cvtsi32_si128(17);

  V lumaWords[2][2], chromaWords[2];  // [row][half], [half]
  for (int h = 0; h < 2; ++h) {
    V blockBr[2], blockGa[2], luma[2][2];  // per vector of the half: column sums of the two rows
    for (int v = 0; v < 2; ++v) {
      const int offset = (2 * h + v) * S::kBytes;
      const V upper = S::bitOr(S::load(top + offset), opaque), lower = S::bitOr(S::load(bottom + offset), opaque);
      const V upperBr = S::bitAnd(upper, lowBytes), upperGa = S::highBytes(upper);
      const V lowerBr = S::bitAnd(lower, lowBytes), lowerGa = S::highBytes(lower);
      luma[0][v] = S::shiftRight32(S::add32(S::madd(upperBr, lumaBr), S::madd(upperGa, lumaGa)), lumaShift);
      luma[1][v] = S::shiftRight32(S::add32(S::madd(lowerBr, lumaBr), S::madd(lowerGa, lumaGa)), lumaShift);
      blockBr[v] = S::add16(upperBr, lowerBr);  // at most 510 per lane
      blockGa[v] = S::add16(upperGa, lowerGa);
    }
    lumaWords[0][h] = S::packs32(luma[0][0], luma[0][1]);
    lumaWords[1][h] = S::packs32(luma[1][0], luma[1][1]);
    // Add each block's two columns: pixels 0,2,.. plus pixels 1,3,..
    const V br = S::add16(S::evenDwords(blockBr[0], blockBr[1]), S::oddDwords(blockBr[0], blockBr[1]));
    const V ga = S::add16(S::evenDwords(blockGa[0], blockGa[1]), S::oddDwords(blockGa[0], blockGa[1]));
    const V cb = S::shiftRight32(S::add32(S::madd(br, cbBr), S::madd(ga, cbGa)), chromaShift);
    const V cr = S::shiftRight32(S::add32(S::madd(br, crBr), S::madd(ga, crGa)), chromaShift);
    chromaWords[h] = S::packs32(S::unpackLow32(cb, cr), S::unpackHigh32(cb, cr));
  }
  S::store(topLuma, S::inHalfOrder(S::packus16(lumaWords[0][0], lumaWords[0][1])));
  S::store(bottomLuma, S::inHalfOrder(S::packus16(lumaWords[1][0], lumaWords[1][1])));
  S::store(chroma, S::inHalfOrder(S::packus16(chromaWords[0], chromaWords[1])));
}

template <class S>
void convertRowPair(const uint8_t* top, const uint8_t* bottom, int width, uint8_t* topLuma, uint8_t* bottomLuma,
                    uint8_t* chroma) {
  constexpr int kChunk = kChunkPixels<S>;
  int x = 0;
  for (; x + kChunk <= width; x += kChunk) {
    convertChunk<S>(top + 4 * x, bottom + 4 * x, topLuma + x, bottomLuma + x, chroma + x);
  }
  if (x == width) return;
  // The remainder through a full chunk of local rows, so that no row is read or written past its end.
  const size_t rest = size_t(width - x);
  uint8_t in[2][4 * kChunk] = {}, luma[2][kChunk], pairs[kChunk];
  std::memcpy(in[0], top + 4 * x, 4 * rest);
  std::memcpy(in[1], bottom + 4 * x, 4 * rest);
  convertChunk<S>(in[0], in[1], luma[0], luma[1], pairs);
  std::memcpy(topLuma + x, luma[0], rest);
  std::memcpy(bottomLuma + x, luma[1], rest);
  std::memcpy(chroma + x, pairs, rest);
}

template <class S>
void lerpRows(const uint8_t* a, const uint8_t* b, int fraction, size_t bytes, uint8_t* out, const uint8_t* upcoming) {
  using V = typename S::V;
  const V zero = S::zero(), f = S::splat32(wordPair(fraction, fraction));
  size_t i = 0;
  for (; i + S::kBytes <= bytes; i += S::kBytes) {
    if (upcoming != nullptr) _mm_prefetch(reinterpret_cast<const char*>(upcoming + i), _MM_HINT_T1);
    const V first = S::load(a + i), second = S::load(b + i);
    const V low = S::lerp16(S::unpackLow8(first, zero), S::unpackLow8(second, zero), f);
    const V high = S::lerp16(S::unpackHigh8(first, zero), S::unpackHigh8(second, zero), f);
    S::store(out + i, S::packus16(low, high));
  }
  for (; i < bytes; ++i) out[i] = uint8_t(a[i] + (((b[i] - a[i]) * fraction + (1 << 14)) >> 15));
}

template <class S>
void blendRows(const uint8_t* const* rows, const int32_t* pairWeights, int pairs, int shift, size_t bytes,
               uint8_t* out, const uint8_t* upcoming) {
  using V = typename S::V;
  const V zero = S::zero(), round = S::splat32(1 << (shift - 1));
  const __m128i count = _mm_cvtsi32_si128(shift);
  size_t i = 0;
  for (; i + S::kBytes <= bytes; i += S::kBytes) {
    if (upcoming != nullptr) _mm_prefetch(reinterpret_cast<const char*>(upcoming + i), _MM_HINT_T1);
    V sum[4] = {round, round, round, round};
    for (int p = 0; p < pairs; ++p) {
      const V weight = S::splat32(pairWeights[p]);
      // Bytes of the two rows interleaved, then widened: pmaddwd weighs and adds each pair.
      const V low = S::unpackLow8(S::load(rows[2 * p] + i), S::load(rows[2 * p + 1] + i));
      const V high = S::unpackHigh8(S::load(rows[2 * p] + i), S::load(rows[2 * p + 1] + i));
      sum[0] = S::add32(sum[0], S::madd(S::unpackLow8(low, zero), weight));
      sum[1] = S::add32(sum[1], S::madd(S::unpackHigh8(low, zero), weight));
      sum[2] = S::add32(sum[2], S::madd(S::unpackLow8(high, zero), weight));
      sum[3] = S::add32(sum[3], S::madd(S::unpackHigh8(high, zero), weight));
    }
    for (V& s : sum) s = S::shiftRight32(s, count);
    S::store(out + i, S::packus16(S::packs32(sum[0], sum[1]), S::packs32(sum[2], sum[3])));
  }
  for (; i < bytes; ++i) {
    int32_t sum = 1 << (shift - 1);
    for (int p = 0; p < pairs; ++p) {
      sum += rows[2 * p][i] * int16_t(pairWeights[p] & 0xFFFF) + rows[2 * p + 1][i] * int16_t(pairWeights[p] >> 16);
    }
    sum >>= shift;
    out[i] = uint8_t(sum < 0 ? 0 : sum > 255 ? 255 : sum);
  }
}

// Any filter, one output pixel at a time: each tap pair's two source pixels are loaded together,
// their bytes interleaved channel by channel and weighed by pmaddwd.
inline __m128i resamplePixel(const uint8_t* source, const int32_t* index, const int16_t* weights, int pairs,
                             __m128i round, __m128i count) {
  __m128i sum = round;
  for (int p = 0; p < pairs; ++p) {
    const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(source + 4 * size_t(index[p])));
    const __m128i channels = _mm_unpacklo_epi8(_mm_unpacklo_epi8(two, _mm_srli_epi64(two, 32)), _mm_setzero_si128());
    sum = _mm_add_epi32(sum, _mm_madd_epi16(channels, _mm_loadu_si128(reinterpret_cast<const __m128i*>(weights + 8 * p))));
  }
  return _mm_sra_epi32(sum, count);
}

inline void resamplePairs(const uint8_t* source, const RowPlanView& plan, uint8_t* out, const uint8_t* upcoming) {
  const __m128i round = _mm_set1_epi32(1 << (plan.shift - 1));
  const __m128i count = _mm_cvtsi32_si128(plan.shift);
  const int pairs = plan.pairs;
  for (int x = 0; x < plan.outputs; x += 4) {
    if (upcoming != nullptr) {
      _mm_prefetch(reinterpret_cast<const char*>(upcoming + 4 * size_t(plan.index[size_t(x) * size_t(pairs)])), _MM_HINT_T1);
    }
    __m128i pixel[4];
    for (int m = 0; m < 4; ++m) {
      const size_t entry = size_t(x + m) * size_t(pairs);
      pixel[m] = resamplePixel(source, plan.index + entry, plan.weights + 8 * entry, pairs, round, count);
    }
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(pixel[0], pixel[1]), _mm_packs_epi32(pixel[2], pixel[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * size_t(x)), bytes);
  }
}

}  // namespace
}  // namespace platform::video
