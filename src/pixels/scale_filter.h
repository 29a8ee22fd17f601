// The weights that samples of a scaled picture are made by.
#pragma once

#include <cstdint>
#include <vector>

#include "row_kernels.h"

namespace zeva {

// The weights of the samples from `start` on. None at either end is 0.
struct SampleWeights {
  int start = 0;
  std::vector<int> weights;
};

// For each row of the result where its neighbours in the source begin, and their weights: `taps`
// numbers that add up to `one`, one row's after the other's. Where the filter reaches beyond an
// edge, the edge's row takes the weights of those that do not exist.
struct ColumnFilter {
  ColumnFilter(int source_size, int target_size, int one);

  int source_size;
  int target_size;
  int taps = 0;
  std::vector<int32_t> starts;
  std::vector<int16_t> weights;
};

// The same for the samples of a row, in the order of RowTaps, with an `one` of its own choice. It
// reaches up to kMargin samples beyond both edges.
struct RowFilter {
  static constexpr int kMargin = 64;
  static constexpr int kLargestRatio = 4;  // of the sizes: RowTaps reaches no farther
  // The least fits every filter; the weights of rows, which grow as it shrinks, fit into words.
  static constexpr int kLeastOne = 80;
  static constexpr int kMostOne = 160;

  RowFilter(int source_size, int target_size);
  RowTaps view() const;
  int start_of(int x) const { return starts[x / 4] + shuffles[2 * static_cast<size_t>(x)]; }

  int source_size;
  int target_size;
  int one = 0;
  int taps = 0;
  bool is_dense = false;
  int pair_shift = 0;
  std::vector<int32_t> starts;
  std::vector<uint8_t> shuffles;
  std::vector<int8_t> weights;

 private:
  bool place(const std::vector<SampleWeights>& all);
};

}  // namespace zeva
