// Resampling weights for one axis, and the packed tables the row kernels read them from.
#pragma once
#include <cstdint>
#include <vector>

namespace platform::video {

// Output sample i is the weighted sum of `taps` consecutive source samples from first[i]; the
// integer weights of each sample sum to 1 << shift. Trailing taps may lie past the source and then
// weigh nothing.
struct AxisFilter {
  int taps = 0;
  int shift = 0;
  std::vector<int> first;
  std::vector<int16_t> weights;  // `taps` per output sample
};

// Pixel-centre aligned bilinear down to half size (and for any enlargement); below half size each
// output averages the source area it covers, so fine detail is averaged rather than skipped.
AxisFilter makeAxisFilter(int sourceSize, int targetSize);

// One row's horizontal filter packed for the kernels. Tables cover `outputs` pixels, the target
// width rounded up to 8; the extra pixels repeat the last one and land in the row's padding.
struct RowPlan {
  enum class Layout { pairs, groups };
  Layout layout = Layout::pairs;
  int outputs = 0;
  int pairs = 0;    // pairs layout: tap pairs per output pixel
  int shift = 0;
  int readEnd = 0;  // one past the last source pixel any load reads
  std::vector<int32_t> index;
  std::vector<uint8_t> permute;
  std::vector<int16_t> weights;
};

// Per output pixel, each pair of taps: the pair's first source pixel and its two weights repeated
// over the four channels. Serves any filter.
void planPairs(const AxisFilter& filter, int targetWidth, RowPlan& plan);

// Two-tap filters in groups of four output pixels whose eight source pixels lie within eight of
// the first: a start pixel, a permutation gathering each output's two source pixels, and each
// output's fraction of the second (15 bits). Returns false (plan untouched) when the filter does
// not fit that shape.
bool planGroups(const AxisFilter& filter, int targetWidth, RowPlan& plan);

}  // namespace platform::video
