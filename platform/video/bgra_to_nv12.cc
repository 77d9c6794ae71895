// The software video processor's pixel work: resample vertically (rows blended into one line of
// source width), then horizontally, then convert two lines at a time to NV12. Lines that need no
// work in a direction are read where they are.
#include "platform/video/bgra_to_nv12.h"

#include <algorithm>
#include <vector>

#include "platform/video/resample_plan.h"
#include "platform/video/row_kernels.h"

namespace platform::video {

namespace {

bool usable(const BgraImage& source, const Nv12Image& target) {
  return source.pixels != nullptr && source.width > 0 && source.height > 0 &&
         source.pitch >= size_t(source.width) * 4 && target.luma != nullptr && target.chroma != nullptr &&
         target.width > 0 && target.height > 0 && target.width % 2 == 0 && target.height % 2 == 0 &&
         target.lumaPitch >= size_t(target.width) && target.chromaPitch >= size_t(target.width);
}

class Resampler {
 public:
  Resampler(const RowKernels& kernels, const BgraImage& source, int targetWidth, int targetHeight)
      : kernels_(kernels), source_(source), rowFilter_(makeAxisFilter(source.height, targetHeight)),
        sameWidth_(source.width == targetWidth) {
    if (!sameWidth_) {
      const AxisFilter columns = makeAxisFilter(source.width, targetWidth);
      if (kernels.resampleGroups == nullptr || !planGroups(columns, targetWidth, plan_)) {
        planPairs(columns, targetWidth, plan_);
      }
      view_ = {plan_.index.data(), plan_.permute.data(), plan_.weights.data(), plan_.outputs, plan_.pairs, plan_.shift};
    }
    // Lines keep zeroed padding past the source width for loads that reach beyond it.
    const size_t lineBytes = 4 * size_t(std::max(source.width, plan_.readEnd));
    const size_t outputBytes = 4 * size_t(plan_.outputs);
    for (int slot = 0; slot < 2; ++slot) {
      lines_[slot].assign(lineBytes, 0);
      outputs_[slot].assign(outputBytes, 0);
    }
    rows_.reserve(size_t(rowFilter_.taps) + 1);
    pairWeights_.reserve(size_t(rowFilter_.taps) / 2 + 1);
  }

  // Target row `y` in BGRA, built in buffers of `slot` (0 or 1) where it needs building.
  const uint8_t* row(int y, int slot) {
    // The newest source row of row y + 1 is fetched while this row is worked on, by the row's
    // longest-running kernel: the horizontal one where there is one.
    const uint8_t* upcoming = y + 1 < int(rowFilter_.first.size()) ? sourceRow(lastRowOf(y + 1)) : nullptr;
    const uint8_t* line = blendedLine(y, slot, sameWidth_ ? upcoming : nullptr);
    if (sameWidth_) return line;
    uint8_t* out = outputs_[slot].data();
    if (plan_.layout == RowPlan::Layout::groups) {
      kernels_.resampleGroups(line, view_, out, upcoming);
    } else {
      kernels_.resamplePairs(line, view_, out, upcoming);
    }
    return out;
  }

 private:
  const uint8_t* sourceRow(int y) const { return source_.pixels + size_t(y) * source_.pitch; }
  int lastRowOf(int y) const { return std::min(rowFilter_.first[size_t(y)] + rowFilter_.taps - 1, source_.height - 1); }

  // The rows of target row `y` blended into one line of source width, or the one source row it
  // takes whole.
  const uint8_t* blendedLine(int y, int slot, const uint8_t* upcoming) {
    rows_.clear();
    pairWeights_.clear();
    int16_t pending = 0;
    const int16_t* weights = &rowFilter_.weights[size_t(y) * size_t(rowFilter_.taps)];
    for (int t = 0; t < rowFilter_.taps; ++t) {
      if (weights[t] == 0) continue;
      rows_.push_back(sourceRow(rowFilter_.first[size_t(y)] + t));
      if (rows_.size() % 2 == 1) {
        pending = weights[t];
      } else {
        pairWeights_.push_back(int32_t(uint32_t(uint16_t(weights[t])) << 16 | uint16_t(pending)));
      }
    }
    uint8_t* line = lines_[slot].data();
    const size_t bytes = 4 * size_t(source_.width);
    if (rows_.size() == 1) {
      if (readableInPlace(rows_[0])) return rows_[0];
      std::copy(rows_[0], rows_[0] + bytes, line);
      return line;
    }
    if (rows_.size() == 2) {
      const int second = pairWeights_[0] >> 16;
      const int shift = rowFilter_.shift;
      const int fraction = shift <= 15 ? second << (15 - shift) : second >> (shift - 15);
      kernels_.lerpRows(rows_[0], rows_[1], fraction, bytes, line, upcoming);
      return line;
    }
    if (rows_.size() % 2 == 1) {  // the odd row out pairs with itself at no weight
      rows_.push_back(rows_.back());
      pairWeights_.push_back(uint16_t(pending));
    }
    kernels_.blendRows(rows_.data(), pairWeights_.data(), int(pairWeights_.size()), rowFilter_.shift, bytes, line,
                       upcoming);
    return line;
  }

  // Whether the horizontal kernel's loads from this source row stay inside the image: loads past
  // the row's end read the following rows, which their zero weights then ignore.
  bool readableInPlace(const uint8_t* row) const {
    if (sameWidth_) return true;
    const size_t lastRowStart = size_t(source_.height - 1) * source_.pitch;
    const size_t available = lastRowStart - size_t(row - source_.pixels) + 4 * size_t(source_.width);
    return 4 * size_t(plan_.readEnd) <= available;
  }

  const RowKernels& kernels_;
  const BgraImage& source_;
  const AxisFilter rowFilter_;
  const bool sameWidth_;
  RowPlan plan_;
  RowPlanView view_{};
  std::vector<uint8_t> lines_[2], outputs_[2];
  std::vector<const uint8_t*> rows_;
  std::vector<int32_t> pairWeights_;
};

}  // namespace

const RowKernels& bestRowKernels() {
  static const RowKernels& best = __builtin_cpu_supports("avx2") ? kAvx2RowKernels : kBaselineRowKernels;
  return best;
}

void scaleBgraToNv12With(const RowKernels& kernels, const BgraImage& source, const Nv12Image& target) {
  if (!usable(source, target)) return;
  const auto lumaRow = [&](int y) { return target.luma + size_t(y) * target.lumaPitch; };
  const auto chromaRow = [&](int y) { return target.chroma + size_t(y / 2) * target.chromaPitch; };
  if (source.width == target.width && source.height == target.height) {
    for (int y = 0; y < target.height; y += 2) {
      const uint8_t* top = source.pixels + size_t(y) * source.pitch;
      kernels.convertRowPair(top, top + source.pitch, target.width, lumaRow(y), lumaRow(y + 1), chromaRow(y));
    }
    return;
  }
  Resampler resampler(kernels, source, target.width, target.height);
  for (int y = 0; y < target.height; y += 2) {
    const uint8_t* top = resampler.row(y, 0);
    const uint8_t* bottom = resampler.row(y + 1, 1);
    kernels.convertRowPair(top, bottom, target.width, lumaRow(y), lumaRow(y + 1), chromaRow(y));
  }
}

void scaleBgraToNv12(const BgraImage& source, const Nv12Image& target) {
  scaleBgraToNv12With(bestRowKernels(), source, target);
}

}  // namespace platform::video
