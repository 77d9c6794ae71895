// The AVX2 row kernels, chosen at run time on processors that have AVX2. Everything this file
// compiles for AVX2 stays internal to it, so no AVX2 copy of a shared function can stand in for
// the baseline one; the standard headers are included before the target switch for that reason.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/video/row_kernels.h"

#pragma GCC push_options
#pragma GCC target("avx2")

#include "platform/video/row_kernels_simd.h"

namespace platform::video {
namespace {

struct Avx2 {
  using V = __m256i;
  static constexpr int kBytes = 32;
  static V load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
  static void store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
  static V splat32(int32_t v) { return _mm256_set1_epi32(v); }
  static V zero() { return _mm256_setzero_si256(); }
  static V bitAnd(V a, V b) { return _mm256_and_si256(a, b); }
  static V bitOr(V a, V b) { return _mm256_or_si256(a, b); }
  static V highBytes(V a) { return _mm256_srli_epi16(a, 8); }
  static V add16(V a, V b) { return _mm256_add_epi16(a, b); }
  static V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
  static V add32(V a, V b) { return _mm256_add_epi32(a, b); }
  static V lerp16(V a, V b, V f) { return _mm256_add_epi16(a, _mm256_mulhrs_epi16(_mm256_sub_epi16(b, a), f)); }
  static V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
  static V shiftRight32(V a, __m128i count) { return _mm256_sra_epi32(a, count); }
  static V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
  static V packus16(V a, V b) { return _mm256_packus_epi16(a, b); }
  static V unpackLow8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
  static V unpackHigh8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
  static V unpackLow32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
  static V unpackHigh32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
  static V evenDwords(V a, V b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
  }
  static V oddDwords(V a, V b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
  }
  // After in-half packing, 4-byte units alternate between the halves: 0,4,1,5,2,6,3,7 restores them.
  static V inHalfOrder(V a) { return _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)); }
};

// Four output pixels of a group: one load of eight source pixels, a permutation that gathers
// each output's two pixels, byte shuffles that widen the first and the second pixels to 16-bit
// channels, and a blend by each output's fraction. Returns pixels 0,1 in the low half and 2,3 in
// the high half, as 16-bit channels.
inline __m256i resampleGroup(const uint8_t* source, const int32_t* index, const uint8_t* permute,
                             const int16_t* fractions) {
  const __m256i widenFirst = _mm256_setr_epi8(0, -1, 1, -1, 2, -1, 3, -1, 8, -1, 9, -1, 10, -1, 11, -1,  //
                                              0, -1, 1, -1, 2, -1, 3, -1, 8, -1, 9, -1, 10, -1, 11, -1);
  const __m256i widenSecond = _mm256_setr_epi8(4, -1, 5, -1, 6, -1, 7, -1, 12, -1, 13, -1, 14, -1, 15, -1,  //
                                               4, -1, 5, -1, 6, -1, 7, -1, 12, -1, 13, -1, 14, -1, 15, -1);
  const __m256i perChannel = _mm256_setr_epi8(0, 1, 0, 1, 0, 1, 0, 1, 8, 9, 8, 9, 8, 9, 8, 9,  //
                                              0, 1, 0, 1, 0, 1, 0, 1, 8, 9, 8, 9, 8, 9, 8, 9);
  const __m256i pixels = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + 4 * size_t(*index)));
  const __m256i order = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(permute)));
  const __m256i gathered = _mm256_permutevar8x32_epi32(pixels, order);
  const __m256i fraction = _mm256_shuffle_epi8(
      _mm256_cvtepu16_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(fractions))), perChannel);
  return Avx2::lerp16(_mm256_shuffle_epi8(gathered, widenFirst), _mm256_shuffle_epi8(gathered, widenSecond), fraction);
}

void resampleGroups(const uint8_t* source, const RowPlanView& plan, uint8_t* out, const uint8_t* upcoming) {
  const int32_t* index = plan.index;
  const uint8_t* permute = plan.permute;
  const int16_t* fractions = plan.weights;
  const int groups = plan.outputs / 4;
  for (int group = 0; group < groups; group += 2) {
    if (upcoming != nullptr) _mm_prefetch(reinterpret_cast<const char*>(upcoming + 4 * size_t(index[group])), _MM_HINT_T1);
    const __m256i bytes = _mm256_packus_epi16(resampleGroup(source, index + group, permute + 8 * group, fractions + 4 * group),
                                              resampleGroup(source, index + group + 1, permute + 8 * group + 8,
                                                            fractions + 4 * group + 4));
    // 8-byte units: group 0's pixels 0,1, group 1's 0,1 | group 0's 2,3, group 1's 2,3.
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16 * size_t(group)), _mm256_permute4x64_epi64(bytes, 0xD8));
  }
}

}  // namespace

const RowKernels kAvx2RowKernels = {
    "avx2", convertRowPair<Avx2>, lerpRows<Avx2>, blendRows<Avx2>, resamplePairs, resampleGroups,
};

}  // namespace platform::video

#pragma GCC pop_options
