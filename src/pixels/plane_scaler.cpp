// Each row of the source is scaled horizontally, once, into words with 6 bits behind the point. The
// last few of these rows are kept; a row of the result is a weighted sum of them. The weights of
// each direction are made once. A horizontal sum has 32 bits; of a vertical one each product is
// rounded to 5 bits behind the point. Where the filter reaches beyond an edge, the edge's sample
// takes the weights of those that do not exist.
#include "plane_scaler.h"

#include <algorithm>
#include <cmath>

namespace zeva {
namespace {

constexpr int kOne = 1 << ScaleBits::kWeight;

// The cubic of Mitchell and Netravali with B = 0, C = 0.6: sharper than Catmull and Rom's.
double cubic(double x) {
  constexpr double c = 0.6;
  x = std::abs(x);
  if (x < 1) return ((2 - c) * x - (3 - c)) * x * x + 1;
  if (x < 2) return c * (((5 - x) * x - 8) * x + 4);
  return 0;
}

// The weights of the samples from `start` on. No weight at either end is 0.
struct SampleWeights {
  int start = 0;
  std::vector<int> weights;
};

// In fixed point, with a sum of exactly one: the largest takes up the rounding.
std::vector<int> to_fixed(const std::vector<double>& weights) {
  double sum = 0;
  for (const double w : weights) sum += w;
  std::vector<int> fixed;
  int rest = kOne;
  for (const double w : weights) {
    fixed.push_back(static_cast<int>(std::lround(w / sum * kOne)));
    rest -= fixed.back();
  }
  *std::max_element(fixed.begin(), fixed.end()) += rest;
  return fixed;
}

SampleWeights weights_at(double centre, double stretch, int source_size) {
  const int first = static_cast<int>(std::ceil(centre - 2 * stretch));
  const int last = static_cast<int>(std::floor(centre + 2 * stretch));
  const int begin = std::clamp(first, 0, source_size - 1);
  const int end = std::clamp(last, 0, source_size - 1) + 1;
  std::vector<double> exact(end - begin);
  for (int i = first; i <= last; ++i) {
    exact[std::clamp(i, 0, source_size - 1) - begin] += cubic((i - centre) / stretch);
  }
  const std::vector<int> fixed = to_fixed(exact);
  const auto is_something = [](int w) { return w != 0; };
  const auto from = std::find_if(fixed.begin(), fixed.end(), is_something);
  const auto to = std::find_if(fixed.rbegin(), fixed.rend(), is_something).base();
  return {begin + static_cast<int>(from - fixed.begin()), {from, to}};
}

size_t filled_up(int width) {
  constexpr int kMultiple = RowTaps::kMultiple;
  return static_cast<size_t>(width + kMultiple - 1) / kMultiple * kMultiple;
}

int chroma_width(const PictureFormat& format) {
  return AV_CEIL_RSHIFT(format.width, av_pix_fmt_desc_get(format.pixels)->log2_chroma_w);
}

int chroma_height(const PictureFormat& format) {
  return AV_CEIL_RSHIFT(format.height, av_pix_fmt_desc_get(format.pixels)->log2_chroma_h);
}

}  // namespace

ScaleFilter::ScaleFilter(int source_size, int target_size)
    : source_size(source_size), target_size(target_size) {
  const double ratio = static_cast<double>(source_size) / target_size;
  std::vector<SampleWeights> all;
  for (int i = 0; i < target_size; ++i) {
    all.push_back(weights_at((i + 0.5) * ratio - 0.5, std::max(ratio, 1.0), source_size));
    taps = std::max(taps, static_cast<int>(all.back().weights.size()));
  }
  taps = (taps + 1) / 2 * 2;
  weights.resize(static_cast<size_t>(target_size) * taps);
  for (int i = 0; i < target_size; ++i) {
    starts.push_back(all[i].start);
    std::copy(all[i].weights.begin(), all[i].weights.end(),
              weights.begin() + static_cast<ptrdiff_t>(i) * taps);
  }
}

// Filled up with samples that have no weight.
RowFilter::RowFilter(const ScaleFilter& filter) : taps(filter.taps) {
  const size_t size = filled_up(filter.target_size);
  weights.resize(RowTaps::place(size, 0, taps));
  for (size_t x = 0; x < static_cast<size_t>(filter.target_size); ++x) {
    for (int tap = 0; tap < taps; ++tap) {
      weights[RowTaps::place(x, tap, taps)] = filter.weights[x * taps + tap];
    }
  }
  is_dense = place_starts(filter, size, 8);
  if (!is_dense) place_starts(filter, size, 4);
}

// False if `neighbours` samples are too far apart for one start.
bool RowFilter::place_starts(const ScaleFilter& filter, size_t size, size_t neighbours) {
  constexpr int kLastPlace = 14;
  std::vector<int32_t> all = filter.starts;
  all.resize(size, all.back());
  starts.clear();
  shuffles.clear();
  for (size_t x = 0; x < size; ++x) {
    const auto group = all.begin() + static_cast<ptrdiff_t>(x / neighbours * neighbours);
    const int32_t start = *std::min_element(group, group + static_cast<ptrdiff_t>(neighbours));
    const int32_t place = all[x] - start;
    if (place > kLastPlace) return false;
    if (x % 4 == 0) starts.push_back(start);
    for (const int byte : {place, 0x80, place + 1, 0x80}) {  // 0x80 gives a zero
      shuffles.push_back(static_cast<uint8_t>(byte));
    }
  }
  return true;
}

PlaneScaler::Filters::Filters(int from_width, int from_height, int to_width, int to_height)
    : vertical(from_height, to_height), horizontal(from_width, to_width), row(horizontal) {}

bool PlaneScaler::supports(const PictureFormat& from, const PictureFormat& to) {
  return from.width <= 4 * to.width && from.height <= 4 * to.height;
}

PlaneScaler::PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)),
      luma(from.width, from.height, to.width, to.height),
      chroma(chroma_width(from), chroma_height(from), chroma_width(to), chroma_height(to)),
      kept_rows(std::max(luma.vertical.taps, chroma.vertical.taps) + 1),
      row_size(static_cast<ptrdiff_t>(filled_up(to.width))),
      source_row(from.width + 16 + std::max(luma.row.taps, chroma.row.taps)),
      scaled(kept_rows * row_size),
      rows(kept_rows) {}

void PlaneScaler::run(const AVFrame& in, AVFrame& out) {
  scale_plane(in, out, 0, luma);
  scale_plane(in, out, 1, chroma);
  scale_plane(in, out, 2, chroma);
}

void PlaneScaler::scale_plane(const AVFrame& in, AVFrame& out, int plane, const Filters& filters) {
  const ScaleFilter& vertical = filters.vertical;
  int next = 0;  // row of the source
  for (int y = 0; y < vertical.target_size; ++y) {
    const int16_t* weights = vertical.weights.data() + static_cast<ptrdiff_t>(y) * vertical.taps;
    const int start = vertical.starts[y];
    const int count = std::min(vertical.taps, vertical.source_size - start);
    for (; next < start + count; ++next) {
      scale_row(row_of(in, plane, next), scaled_row(next), filters);
    }
    for (int i = 0; i < count; ++i) rows[i] = scaled_row(start + i);
    combine_rows({rows.data(), weights, count}, row_of(out, plane, y),
                 filters.horizontal.target_size);
  }
}

void PlaneScaler::scale_row(const uint8_t* from, int16_t* to, const Filters& filters) {
  const ScaleFilter& filter = filters.horizontal;
  memcpy(source_row.data(), from, filter.source_size);
  if (kernels != nullptr) {
    kernels->scale_row(source_row.data(), filters.row.view(), to,
                       static_cast<int>(filled_up(filter.target_size)));
    return;
  }
  for (int x = 0; x < filter.target_size; ++x) {
    const int16_t* weights = filter.weights.data() + static_cast<ptrdiff_t>(x) * filter.taps;
    const uint8_t* samples = source_row.data() + filter.starts[x];
    int sum = ScaleBits::kRowRounding;
    for (int tap = 0; tap < filter.taps; ++tap) sum += weights[tap] * samples[tap];
    to[x] = static_cast<int16_t>(sum >> ScaleBits::kRowShift);
  }
}

void PlaneScaler::combine_rows(const RowSum& sum, uint8_t* to, int width) const {
  int x = kernels != nullptr ? kernels->combine_rows(sum, to, width) : 0;
  for (; x < width; ++x) {
    int value = ScaleBits::kSumRounding;
    for (int i = 0; i < sum.count; ++i) {
      value += (sum.rows[i][x] * sum.weights[i] + 0x4000) >> 15;
    }
    to[x] = static_cast<uint8_t>(std::clamp(value >> ScaleBits::kSum, 0, 255));
  }
}

}  // namespace zeva
