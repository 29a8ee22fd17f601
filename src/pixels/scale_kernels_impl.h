// The kernels that scale, part of row_kernels_impl.h.
#pragma once

#include <cstdint>

#include "row_kernels.h"

namespace zeva {
namespace {

constexpr int kGroups = kWords / 4;  // of four samples, in a register of words

// The samples of a register's results, two taps of each. Where eight neighbours are too far apart,
// four of them come from a window of their own.
template <bool kDense>
ZEVA_OP V gather(const uint8_t* from, const int32_t* starts, V places) {
  const V first = shuffle8(load_two(from + starts[0], from + starts[kGroups - 2]), places);
  if (kDense) return first;
  const V second = shuffle8(load_two(from + starts[1], from + starts[kGroups - 1]), places);
  return join_halves(first, second);
}

// kTaps is 0 where it is not known before.
template <bool kDense, int kTaps>
ZEVA_SIMD int scale_row_by(const uint8_t* from, const RowTaps& row_taps, int16_t* to, int width) {
  const RowTaps t = row_taps;
  const auto size = static_cast<size_t>(width);
  const size_t taps = kTaps != 0 ? kTaps : static_cast<size_t>(t.taps);
  for (size_t x = 0; x < size; x += kWords) {
    const int8_t* weights = t.weights + RowTaps::place(x, 0, taps);
    const V places = load(t.shuffles + 2 * x);
    V sum = set16(-t.middle);
#pragma GCC unroll 4
    for (size_t tap = 0; tap < taps; tap += 2) {
      const V samples = gather<kDense>(from + tap, t.starts + x / 4, places);
      const V pairs = madd8(samples, load(weights + tap * 16));
      sum = add16(sum, kDense ? pairs : shift_right16_signed(pairs, t.pair_shift));
    }
    store(to + x, sum);
  }
  return width;
}

// Half the width: the bytes from a tap on are the pairs of all samples in their order, and nothing
// is left to gather.
ZEVA_SIMD int halve_row(const uint8_t* from, const RowTaps& row_taps, int16_t* to, int width) {
  constexpr int kPairs = 4;
  const uint8_t* const start = from + row_taps.starts[0];
  const V middle = set16(-row_taps.middle);
  V weights[kPairs];
  for (int i = 0; i < kPairs; ++i) {
    weights[i] = load(row_taps.weights + RowTaps::place(0, 2 * i, 2 * kPairs));
  }
  for (int x = 0; x < width; x += kWords) {
    V sum = middle;
#pragma GCC unroll 4
    for (int i = 0; i < kPairs; ++i) {
      sum = add16(sum, madd8(load(start + 2 * (x + i)), weights[i]));
    }
    store(to + x, sum);
  }
  return width;
}

int scale_row(const uint8_t* from, const RowTaps& taps, int16_t* to, int width) {
  if (!taps.is_dense) return scale_row_by<false, 0>(from, taps, to, width);
  switch (taps.taps) {
    case 4:
      return scale_row_by<true, 4>(from, taps, to, width);
    case 6:
      return scale_row_by<true, 6>(from, taps, to, width);
    case 8:
      return taps.is_half ? halve_row(from, taps, to, width)
                          : scale_row_by<true, 8>(from, taps, to, width);
    default:
      return scale_row_by<true, 0>(from, taps, to, width);
  }
}

// kCount is 0 where it is not known before. Where the width is no multiple of four registers, the
// last ones do some samples once more.
template <int kCount>
ZEVA_SIMD int combine_rows_by(const RowSum& rows, uint8_t* to, int width) {
  constexpr int kStep = 4 * kWords;
  const RowSum r = rows;
  const int count = kCount != 0 ? kCount : r.count;
  const V bias = set16(ScaleSums::kBias);
  for (int x = 0;; x = x + 2 * kStep <= width ? x + kStep : width - kStep) {
    V sums[4] = {bias, bias, bias, bias};
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i) {
      const V weight = set16(r.weights[i]);
      const int16_t* row = r.rows[i] + x;
#pragma GCC unroll 4
      for (int k = 0; k < 4; ++k) {
        sums[k] = add16(sums[k], multiply_round15(load(row + k * kWords), weight));
      }
    }
#pragma GCC unroll 4
    for (V& sum : sums) sum = shift_right16_signed<ScaleSums::kBits>(sum);
    store(to + x, narrow16(sums[0], sums[1]));
    store(to + x + kBytes, narrow16(sums[2], sums[3]));
    if (x + kStep == width) return width;
  }
}

int combine_rows(const RowSum& sum, uint8_t* to, int width) {
  if (width < 4 * kWords) return 0;
  switch (sum.count) {
    case 4:
      return combine_rows_by<4>(sum, to, width);
    case 6:
      return combine_rows_by<6>(sum, to, width);
    case 8:
      return combine_rows_by<8>(sum, to, width);
    default:
      return combine_rows_by<0>(sum, to, width);
  }
}

}  // namespace
}  // namespace zeva
