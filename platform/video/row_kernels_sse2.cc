// The baseline row kernels: SSE2 only, so they run on every x86-64 processor.
#include <emmintrin.h>

#include "platform/video/row_kernels_simd.h"

namespace platform::video {
namespace {

struct Sse2 {
  using V = __m128i;
  static constexpr int kBytes = 16;
  static V load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  static void store(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
  static V splat32(int32_t v) { return _mm_set1_epi32(v); }
  static V zero() { return _mm_setzero_si128(); }
  static V bitAnd(V a, V b) { return _mm_and_si128(a, b); }
  static V bitOr(V a, V b) { return _mm_or_si128(a, b); }
  static V highBytes(V a) { return _mm_srli_epi16(a, 8); }
  static V add16(V a, V b) { return _mm_add_epi16(a, b); }
  static V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
  static V add32(V a, V b) { return _mm_add_epi32(a, b); }
  // Without SSSE3's rounding multiply: the product in 1/64 levels, then rounded.
  static V lerp16(V a, V b, V f) {
    const V step = _mm_mulhi_epi16(_mm_slli_epi16(_mm_sub_epi16(b, a), 7), f);
    return _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(_mm_slli_epi16(a, 6), step), _mm_set1_epi16(32)), 6);
  }
  static V madd(V a, V b) { return _mm_madd_epi16(a, b); }
  static V shiftRight32(V a, __m128i count) { return _mm_sra_epi32(a, count); }
  static V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
  static V packus16(V a, V b) { return _mm_packus_epi16(a, b); }
  static V unpackLow8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
  static V unpackHigh8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
  static V unpackLow32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
  static V unpackHigh32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
  static V evenDwords(V a, V b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
  }
  static V oddDwords(V a, V b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
  }
  static V inHalfOrder(V a) { return a; }  // a single half is already in order
};

}  // namespace

const RowKernels kBaselineRowKernels = {
    "sse2", convertRowPair<Sse2>, lerpRows<Sse2>, blendRows<Sse2>, resamplePairs, nullptr,
};

}  // namespace platform::video
