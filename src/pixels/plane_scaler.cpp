// Rows are combined first, straight from the picture's bytes into words with 6 bits behind the
// point; the row that comes out stays in the processor's cache and is then scaled horizontally.
// Each direction is a sum of products with a table of weights that is made once. Where the filter
// reaches beyond an edge, the edge's sample takes the weights of those that do not exist.
#include "plane_scaler.h"

#include <algorithm>
#include <cmath>

namespace zeva {
namespace {

constexpr int kOne = 1 << ScaleBits::kWeight;
constexpr int kBlock = 8;  // of taps, for WideTaps

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

// Without those that are 0 for every sample; an even number.
int used_taps(const ScaleFilter& filter) {
  int used = 0;
  for (size_t i = 0; i < filter.weights.size(); ++i) {
    if (filter.weights[i] != 0) used = std::max(used, static_cast<int>(i % filter.taps) + 1);
  }
  return (used + 1) / 2 * 2;
}

int chroma_height(const PictureFormat& format) {
  return is_planar_420(format.pixels) ? half_of(format.height) : format.height;
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
  taps = (taps + kBlock - 1) / kBlock * kBlock;
  weights.resize(static_cast<size_t>(target_size) * taps);
  for (int i = 0; i < target_size; ++i) {
    starts.push_back(all[i].start);
    std::copy(all[i].weights.begin(), all[i].weights.end(),
              weights.begin() + static_cast<ptrdiff_t>(i) * taps);
  }
}

CloseFilter::CloseFilter(const ScaleFilter& filter) : taps(used_taps(filter)) {
  const int size = filter.target_size;
  for (int x = 0; x + 4 <= size; x += 4) {
    const auto group = filter.starts.begin() + x;
    const int32_t start = *std::min_element(group, group + 4);
    starts.push_back(start);
    for (int i = 0; i < 4; ++i) {
      const int place = group[i] - start;
      if (place > 6) return;
      for (int byte = 0; byte < 4; ++byte)
        shuffles.push_back(static_cast<uint8_t>(2 * place + byte));
    }
  }
  weights.resize(CloseTaps::place((size + 7) / 8 * 8, 0, taps));
  for (int x = 0; x < size; ++x) {
    for (int tap = 0; tap < taps; ++tap) {
      weights[CloseTaps::place(x, tap, taps)] =
          filter.weights[static_cast<size_t>(x) * filter.taps + tap];
    }
  }
}

PlaneScaler::Filters::Filters(int from_width, int from_height, int to_width, int to_height)
    : vertical(from_height, to_height), horizontal(from_width, to_width), close(horizontal) {}

bool PlaneScaler::supports(const PictureFormat& from, const PictureFormat& to) {
  return from.width <= 4 * to.width && from.height <= 4 * to.height;
}

// The row has room for what registers read behind its last sample.
PlaneScaler::PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)),
      luma(from.width, from.height, to.width, to.height),
      chroma(half_of(from.width), chroma_height(from), half_of(to.width), chroma_height(to)),
      rows(std::max(luma.vertical.taps, chroma.vertical.taps)),
      row_weights(rows.size()),
      combined(from.width + 2 * std::max(luma.horizontal.taps, chroma.horizontal.taps)) {}

void PlaneScaler::run(const AVFrame& in, AVFrame& out) {
  scale_plane(in, out, 0, luma);
  scale_plane(in, out, 1, chroma);
  scale_plane(in, out, 2, chroma);
}

void PlaneScaler::scale_plane(const AVFrame& in, AVFrame& out, int plane, const Filters& filters) {
  for (int y = 0; y < filters.vertical.target_size; ++y) {
    combine_rows(in, plane, filters.vertical, y, filters.horizontal.source_size);
    scale_row(row_of(out, plane, y), filters);
  }
}

void PlaneScaler::combine_rows(const AVFrame& in, int plane, const ScaleFilter& filter, int y,
                               int width) {
  const int16_t* weights = filter.weights.data() + static_cast<ptrdiff_t>(y) * filter.taps;
  int count = 0;
  int positive = 0;
  for (const int sign : {1, -1}) {
    for (int tap = 0; tap < filter.taps; ++tap) {
      if (weights[tap] * sign <= 0) continue;
      rows[count] = row_of(in, plane, filter.starts[y] + tap);
      row_weights[count++] = static_cast<uint16_t>(weights[tap] * sign);
    }
    if (sign > 0) positive = count;
  }
  const RowSum sum = {rows.data(), row_weights.data(), positive, count, positive - count / 2};
  int x = kernels != nullptr ? kernels->combine_rows(sum, combined.data(), width) : 0;
  for (; x < width; ++x) {
    int value = sum.offset;
    for (int i = 0; i < count; ++i) {
      const int part = rows[i][x] * row_weights[i] >> 8;
      value += i < positive ? part : -part;
    }
    combined[x] = static_cast<int16_t>(value);
  }
}

void PlaneScaler::scale_row(uint8_t* to, const Filters& filters) const {
  const ScaleFilter& wide = filters.horizontal;
  const CloseFilter& close = filters.close;
  int x = 0;
  if (kernels != nullptr && !close.weights.empty()) {
    const CloseTaps taps = {close.starts.data(), close.shuffles.data(), close.weights.data(),
                            close.taps};
    x = kernels->scale_close(combined.data(), taps, to, wide.target_size);
  } else if (kernels != nullptr) {
    const WideTaps taps = {wide.starts.data(), wide.weights.data(), wide.taps};
    x = kernels->scale_wide(combined.data(), taps, to, wide.target_size);
  }
  for (; x < wide.target_size; ++x) {
    const int16_t* weights = wide.weights.data() + static_cast<ptrdiff_t>(x) * wide.taps;
    const int16_t* samples = combined.data() + wide.starts[x];
    int sum = ScaleBits::kRounding;
    for (int tap = 0; tap < wide.taps; ++tap) sum += weights[tap] * samples[tap];
    to[x] = static_cast<uint8_t>(std::clamp(sum >> ScaleBits::kShift, 0, 255));
  }
}

}  // namespace zeva
