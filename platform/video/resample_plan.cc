#include "platform/video/resample_plan.h"

#include <algorithm>
#include <cmath>

namespace platform::video {

namespace {

constexpr int kBilinearShift = 14;
constexpr int kLargestWeight = 32767;  // weights feed signed 16-bit multiplies

// Rounds real weights to integers summing exactly to 1 << shift, so flat areas stay exact.
void quantise(const std::vector<double>& real, int shift, int16_t* out) {
  const int total = 1 << shift;
  int sum = 0;
  size_t largest = 0;
  for (size_t t = 0; t < real.size(); ++t) {
    out[t] = int16_t(std::lround(real[t] * total));
    sum += out[t];
    if (out[t] > out[largest]) largest = t;
  }
  out[largest] = int16_t(out[largest] + (total - sum));
}

AxisFilter bilinear(int sourceSize, int targetSize) {
  AxisFilter filter;
  filter.taps = 2;
  filter.shift = kBilinearShift;
  filter.first.resize(size_t(targetSize));
  filter.weights.resize(size_t(targetSize) * 2);
  const int lastStart = std::max(sourceSize - 2, 0);
  std::vector<double> real(2);
  for (int i = 0; i < targetSize; ++i) {
    // Source coordinate of the output pixel's centre, counted between pixel centres.
    const double centre = double((2 * int64_t(i) + 1) * sourceSize - targetSize) / (2.0 * targetSize);
    const int start = std::clamp(int(std::floor(centre)), 0, lastStart);
    const double fraction = sourceSize == 1 ? 0.0 : std::clamp(centre - start, 0.0, 1.0);
    filter.first[size_t(i)] = start;
    real[0] = 1.0 - fraction;
    real[1] = fraction;
    quantise(real, filter.shift, &filter.weights[size_t(i) * 2]);
  }
  return filter;
}

AxisFilter areaAverage(int sourceSize, int targetSize) {
  const double scale = double(sourceSize) / targetSize;
  AxisFilter filter;
  auto begin = [&](int i) { return double(int64_t(i) * sourceSize) / targetSize; };
  for (int i = 0; i < targetSize; ++i) {
    filter.taps = std::max(filter.taps, int(std::ceil(begin(i + 1)) - std::floor(begin(i))));
  }
  // The widest shift whose full-coverage weight (1/scale) still fits, for precision with many
  // taps; at most 22 so that 255 times the total stays within 32 bits.
  filter.shift = std::min(22, int(std::floor(std::log2(kLargestWeight * scale * 0.98))));
  filter.first.resize(size_t(targetSize));
  filter.weights.resize(size_t(targetSize) * size_t(filter.taps));
  std::vector<double> real(size_t(filter.taps));
  for (int i = 0; i < targetSize; ++i) {
    const double from = begin(i), to = begin(i + 1);
    const int start = int(std::floor(from));
    filter.first[size_t(i)] = start;
    for (int t = 0; t < filter.taps; ++t) {
      const double covered = std::min(double(start + t + 1), to) - std::max(double(start + t), from);
      real[size_t(t)] = start + t < sourceSize ? std::max(covered, 0.0) / scale : 0.0;
    }
    quantise(real, filter.shift, &filter.weights[size_t(i) * size_t(filter.taps)]);
  }
  return filter;
}

int roundUpTo8(int value) { return (value + 7) & ~7; }

}  // namespace

AxisFilter makeAxisFilter(int sourceSize, int targetSize) {
  // At exactly half size the two agree: the centre falls between two pixels of equal weight.
  if (sourceSize <= 2 * int64_t(targetSize)) return bilinear(sourceSize, targetSize);
  return areaAverage(sourceSize, targetSize);
}

void planPairs(const AxisFilter& filter, int targetWidth, RowPlan& plan) {
  plan.layout = RowPlan::Layout::pairs;
  plan.outputs = roundUpTo8(targetWidth);
  plan.pairs = (filter.taps + 1) / 2;
  plan.shift = filter.shift;
  plan.readEnd = 0;
  plan.index.assign(size_t(plan.outputs) * size_t(plan.pairs), 0);
  plan.weights.assign(plan.index.size() * 8, 0);
  plan.permute.clear();
  for (int i = 0; i < plan.outputs; ++i) {
    const int from = std::min(i, targetWidth - 1);
    const int16_t* weights = &filter.weights[size_t(from) * size_t(filter.taps)];
    for (int p = 0; p < plan.pairs; ++p) {
      const size_t entry = size_t(i) * size_t(plan.pairs) + size_t(p);
      const int tap = 2 * p;
      plan.index[entry] = filter.first[size_t(from)] + tap;
      plan.readEnd = std::max(plan.readEnd, plan.index[entry] + 2);
      for (int channel = 0; channel < 4; ++channel) {
        plan.weights[entry * 8 + size_t(2 * channel)] = weights[tap];
        plan.weights[entry * 8 + size_t(2 * channel) + 1] = tap + 1 < filter.taps ? weights[tap + 1] : 0;
      }
    }
  }
}

bool planGroups(const AxisFilter& filter, int targetWidth, RowPlan& plan) {
  if (filter.taps != 2) return false;
  const int outputs = roundUpTo8(targetWidth);
  const int groups = outputs / 4;
  for (int g = 0; g < groups; ++g) {
    const int start = filter.first[size_t(std::min(4 * g, targetWidth - 1))];
    const int end = filter.first[size_t(std::min(4 * g + 3, targetWidth - 1))];
    if (end + 1 - start > 7) return false;
  }
  plan.layout = RowPlan::Layout::groups;
  plan.outputs = outputs;
  plan.pairs = 1;
  plan.shift = filter.shift;
  plan.readEnd = 0;
  plan.index.assign(size_t(groups), 0);
  plan.permute.assign(size_t(groups) * 8, 0);
  plan.weights.assign(size_t(groups) * 4, 0);
  const int whole = 1 << filter.shift;
  for (int g = 0; g < groups; ++g) {
    const int start = filter.first[size_t(std::min(4 * g, targetWidth - 1))];
    plan.index[size_t(g)] = start;
    plan.readEnd = std::max(plan.readEnd, start + 8);
    for (int m = 0; m < 4; ++m) {
      const int pixel = std::min(4 * g + m, targetWidth - 1);
      int offset = filter.first[size_t(pixel)] - start;
      int second = filter.weights[size_t(pixel) * 2 + 1];
      if (second == whole) {  // all on the second pixel: a fraction of one does not fit 15 bits
        ++offset;
        second = 0;
      }
      plan.permute[size_t(g) * 8 + size_t(2 * m)] = uint8_t(offset);
      plan.permute[size_t(g) * 8 + size_t(2 * m) + 1] = uint8_t(std::min(offset + 1, 7));
      plan.weights[size_t(g) * 4 + size_t(m)] = int16_t((second << 15) >> filter.shift);
    }
  }
  return true;
}

}  // namespace platform::video
