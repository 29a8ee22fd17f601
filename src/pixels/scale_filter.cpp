// A cubic filter, which is as much wider as the picture gets smaller. The weights of a row are
// bytes, so that one instruction multiplies 32 of them. Their sum is, of those for which all sums
// of products fit into words, the kindest to the few fractions that a ratio of sizes has: with it
// most weights are nearly whole. All samples have exactly that sum, so flat areas stay flat, and
// the error of a sample is a small share of the contrast around it.
#include "scale_filter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace zeva {
namespace {

// The cubic of Mitchell and Netravali with B = 0, C = 0.6: sharper than Catmull and Rom's.
double cubic(double x) {
  constexpr double c = 0.6;
  x = std::abs(x);
  if (x < 1) return ((2 - c) * x - (3 - c)) * x * x + 1;
  if (x < 2) return c * (((5 - x) * x - 8) * x + 4);
  return 0;
}

struct ExactWeights {
  int start = 0;
  std::vector<double> weights;  // of the samples from there on; 1 in all
};

// Of the samples from `low` to `high`; those beyond count as the last ones.
ExactWeights exact_weights(int i, double ratio, int low, int high) {
  const double centre = (i + 0.5) * ratio - 0.5;
  const double stretch = std::max(ratio, 1.0);
  const int first = static_cast<int>(std::ceil(centre - 2 * stretch));
  const int last = static_cast<int>(std::floor(centre + 2 * stretch));
  const int begin = std::clamp(first, low, high);
  std::vector<double> weights(std::clamp(last, low, high) + 1 - begin);
  double sum = 0;
  for (int at = first; at <= last; ++at) {
    const double weight = cubic((at - centre) / stretch);
    weights[std::clamp(at, low, high) - begin] += weight;
    sum += weight;
  }
  for (double& weight : weights) weight /= sum;
  return {begin, weights};
}

// The nearest numbers whose sum is `one`.
SampleWeights to_fixed(const ExactWeights& exact, int one) {
  std::vector<int> fixed;
  std::vector<double> rests;
  int rest = one;
  for (const double w : exact.weights) {
    fixed.push_back(static_cast<int>(std::lround(w * one)));
    rests.push_back(w * one - fixed.back());
    rest -= fixed.back();
  }
  const int step = rest > 0 ? 1 : -1;
  for (; rest != 0; rest -= step) {
    const auto at = rest > 0 ? std::max_element(rests.begin(), rests.end())
                             : std::min_element(rests.begin(), rests.end());
    *at -= step;
    fixed[at - rests.begin()] += step;
  }
  const auto is_something = [](int w) { return w != 0; };
  const auto from = std::find_if(fixed.begin(), fixed.end(), is_something);
  const auto to = std::find_if(fixed.rbegin(), fixed.rend(), is_something).base();
  return {exact.start + static_cast<int>(from - fixed.begin()), {from, to}};
}

// Of products with bytes: the sum of any two neighbours, and that of all less the middle, which
// are divided.
bool fit_into_words(const SampleWeights& w, int one, int divisor) {
  constexpr int kLargest = 32767;
  int ups = 0;
  int pair = 0;
  for (size_t i = 0; i < w.weights.size(); ++i) {
    const int up = std::max(w.weights[i], 0);
    pair = i % 2 == 0 ? up : pair + up;
    if (up > 127 || pair * 255 > kLargest) return false;
    ups += up;
  }
  return ups * 255 - one * 128 <= kLargest * divisor &&
         (ups - one) * 255 + one * 128 <= kLargest * divisor;
}

double squared_error(const ExactWeights& exact, const SampleWeights& fixed, int one) {
  double sum = 0;
  for (size_t i = 0; i < exact.weights.size(); ++i) {
    const int at = exact.start + static_cast<int>(i) - fixed.start;
    const bool has = at >= 0 && at < static_cast<int>(fixed.weights.size());
    const double rest = exact.weights[i] - (has ? fixed.weights[at] : 0) / static_cast<double>(one);
    sum += rest * rest;
  }
  return sum;
}

// Empty when one does not fit.
std::vector<SampleWeights> to_fixed_bytes(const std::vector<ExactWeights>& exact, int one,
                                          int divisor) {
  std::vector<SampleWeights> all;
  for (const ExactWeights& weights : exact) {
    all.push_back(to_fixed(weights, one));
    if (!fit_into_words(all.back(), one, divisor)) return {};
  }
  return all;
}

// All sums that weights may have, the kindest first. Some samples tell, since the fractions repeat.
std::vector<int> possible_ones(const std::vector<ExactWeights>& exact, int divisor) {
  constexpr size_t kEnough = 8;
  std::vector<std::pair<double, int>> errors;
  for (int one = RowFilter::kLeastOne; one <= RowFilter::kMostOne; ++one) {
    double error = 0;
    for (size_t i = 0; i < std::min(exact.size(), kEnough); ++i) {
      error += squared_error(exact[i], to_fixed(exact[i], one * divisor), one * divisor);
    }
    errors.emplace_back(error, one);
  }
  std::sort(errors.begin(), errors.end());
  std::vector<int> ones;
  ones.reserve(errors.size());
  for (const auto& [error, one] : errors) ones.push_back(one * divisor);
  return ones;
}

size_t filled_up(size_t width) {
  return (width + RowTaps::kMultiple - 1) / RowTaps::kMultiple * RowTaps::kMultiple;
}

}  // namespace

ColumnFilter::ColumnFilter(int source_size, int target_size, int one)
    : source_size(source_size), target_size(target_size) {
  const double ratio = static_cast<double>(source_size) / target_size;
  std::vector<SampleWeights> all;
  for (int i = 0; i < target_size; ++i) {
    all.push_back(to_fixed(exact_weights(i, ratio, 0, source_size - 1), one));
    starts.push_back(all.back().start);
    taps = std::max(taps, static_cast<int>(all.back().weights.size()));
  }
  weights.resize(static_cast<size_t>(target_size) * taps);
  for (int i = 0; i < target_size; ++i) {
    std::copy(all[i].weights.begin(), all[i].weights.end(),
              weights.begin() + static_cast<ptrdiff_t>(i) * taps);
  }
}

// Sums of two products are halved where many are added up, so that the weights are twice as fine;
// not where two of these may be too large.
RowFilter::RowFilter(int source_size, int target_size)
    : source_size(source_size), target_size(target_size) {
  const double ratio = static_cast<double>(source_size) / target_size;
  std::vector<ExactWeights> exact;
  exact.reserve(target_size);
  for (int x = 0; x < target_size; ++x) {
    exact.push_back(exact_weights(x, ratio, -kMargin, source_size + kMargin));
  }
  const std::pair<bool, int> ways[] = {{true, 0}, {false, 1}, {false, 0}};
  for (const auto& [dense, bits] : ways) {
    is_dense = dense;
    pair_shift = bits;
    for (const int sum : possible_ones(exact, 1 << bits)) {
      one = sum >> bits;
      const std::vector<SampleWeights> all = to_fixed_bytes(exact, sum, 1 << bits);
      if (all.empty()) continue;
      if (place(all)) return;
      break;
    }
  }
}

RowTaps RowFilter::view() const {
  const bool is_half = source_size == 2 * target_size;
  return {starts.data(), shuffles.data(), weights.data(), taps,
          is_dense,      is_half,         pair_shift,     128 * one};
}

// Filled up with samples that have no weight. False if eight neighbours should have one start and
// are too far apart.
bool RowFilter::place(const std::vector<SampleWeights>& all) {
  constexpr int kLastPlace = 14;
  const size_t neighbours = is_dense ? 8 : 4;
  const size_t size = filled_up(all.size());
  const auto start_of = [&all](size_t x) { return all[std::min(x, all.size() - 1)].start; };
  starts.clear();
  shuffles.clear();
  for (size_t x = 0; x < size; ++x) {
    int start = start_of(x);
    for (size_t i = 0; i < neighbours; ++i) {
      start = std::min(start, start_of(x / neighbours * neighbours + i));
    }
    const int first = start_of(x) - start;
    if (first > kLastPlace) return false;
    if (x % 4 == 0) starts.push_back(start);
    shuffles.push_back(static_cast<uint8_t>(first));
    shuffles.push_back(static_cast<uint8_t>(first + 1));
  }
  for (const SampleWeights& w : all)
    taps = std::max(taps, static_cast<int>(w.weights.size() + 1) / 2 * 2);
  weights.resize(RowTaps::place(size, 0, taps));
  for (size_t x = 0; x < all.size(); ++x) {
    for (size_t tap = 0; tap < all[x].weights.size(); ++tap) {
      weights[RowTaps::place(x, tap, taps)] = static_cast<int8_t>(all[x].weights[tap]);
    }
  }
  return true;
}

}  // namespace zeva
