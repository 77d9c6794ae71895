// The row kernels behind scaleBgraToNv12, one set per instruction set level.
#pragma once
#include <cstddef>
#include <cstdint>

#include "platform/video/bgra_to_nv12.h"

namespace platform::video {

// A RowPlan's tables as the kernels read them.
struct RowPlanView {
  const int32_t* index;
  const uint8_t* permute;
  const int16_t* weights;
  int outputs;
  int pairs;
  int shift;
};

// Each kernel that streams source rows also takes `upcoming`, a row the next call will stream
// (or null), and pulls it towards the cache at the same pace: the processor's own prefetching
// falls behind on rows read one short stretch at a time.
struct RowKernels {
  const char* name;
  // Two BGRA rows of `width` (even) pixels to their two luma rows and their row of Cb,Cr pairs.
  void (*convertRowPair)(const uint8_t* top, const uint8_t* bottom, int width, uint8_t* topLuma,
                         uint8_t* bottomLuma, uint8_t* chroma);
  // out = a + (b - a) * fraction / 2^15, byte by byte, rounded: the two-row blend.
  void (*lerpRows)(const uint8_t* a, const uint8_t* b, int fraction, size_t bytes, uint8_t* out,
                   const uint8_t* upcoming);
  // out = sum over pairs p of rows[2p] * weight lo(p) + rows[2p+1] * weight hi(p), byte by byte;
  // each int32 of pairWeights holds the two int16 weights, and all weights sum to 1 << shift.
  void (*blendRows)(const uint8_t* const* rows, const int32_t* pairWeights, int pairs, int shift,
                    size_t bytes, uint8_t* out, const uint8_t* upcoming);
  // One row resampled to plan.outputs pixels, from a plan of the pairs layout.
  void (*resamplePairs)(const uint8_t* source, const RowPlanView& plan, uint8_t* out, const uint8_t* upcoming);
  // The same from a plan of the groups layout; null when this set has no such kernel.
  void (*resampleGroups)(const uint8_t* source, const RowPlanView& plan, uint8_t* out, const uint8_t* upcoming);
};

extern const RowKernels kBaselineRowKernels;  // SSE2, which every x86-64 processor has
extern const RowKernels kAvx2RowKernels;

// The fastest set this processor runs.
const RowKernels& bestRowKernels();

// scaleBgraToNv12 on a chosen set, so that each set can be checked on its own.
void scaleBgraToNv12With(const RowKernels& kernels, const BgraImage& source, const Nv12Image& target);

}  // namespace platform::video
