// The steps' work on rows, and the vector code for it. Each kernel does as many samples from
// the left as fill its registers and returns their number; the caller does the rest in plain C++,
// by the same integer formula, so that every processor gives the same bytes.
#pragma once

#include <cstdint>
#include <cstring>

#include "cpu_level.h"

namespace zeva {

// Fixed point, 15 bits. Of each pixel the bytes in memory order: where a pixel has a fourth byte
// that is no colour, its coefficient is 0.
struct RgbCoefficients {
  static constexpr int kBits = 15;
  int16_t y[4];
  int16_t u[4];
  int16_t v[4];
  int32_t y_bias;       // black and half a step
  int32_t chroma_bias;  // the same for chroma, which is computed from the sum of four pixels
};

// Two rows of pixels, which share a row of chroma. The last row of an odd height is both of them.
struct RgbRows {
  const uint8_t* in[2];
  uint8_t* y[2];
  uint8_t* u;
  uint8_t* v;  // null: U and V alternate in `u`
  int width;
  int pixel_bytes;  // 3 or 4
};

// A row of pixels, with chroma for each. The bias of chroma is that of a sum of four.
struct RgbRow444 {
  const uint8_t* in;
  uint8_t* y;
  uint8_t* u;
  uint8_t* v;
  int width;
  int pixel_bytes;  // 3 or 4
};

// Two rows of packed 4:2:2 (YUYV, or UYVY where luma is not first), whose chroma is averaged.
struct PackedRows {
  const uint8_t* in[2];
  uint8_t* y[2];
  uint8_t* u;
  uint8_t* v;
  int width;
  bool luma_first;
};

// From words of ten bits to bytes: shifted to the top of the word, less a share of itself (15
// bits) where the full range is not exactly four times that of eight bits, plus an offset in 1/128.
struct NarrowScale {
  int left;
  int16_t less;
  int16_t offset;
};

// Fixed point, 14 bits. Luma takes its part of chroma from `y_u` and `y_v`.
struct RecolourWeights {
  static constexpr int kBits = 14;
  static constexpr int kLumaBits = 6;  // kept between the parts of luma, in words
  int16_t y;
  int16_t y_u, y_v;
  int16_t u_u, u_v;
  int16_t v_u, v_v;
  int32_t y_bias;  // with half a step, as the others
  int32_t u_bias;
  int32_t v_bias;
};

struct YuvRow {
  const uint8_t* y;
  const uint8_t* u;
  const uint8_t* v;
};

// Fixed point of scaling. A row that is scaled horizontally has words: so much for each step of a
// byte as its filter's weights add up to, less the middle of all bytes, so that they reach as far
// up as down. Sums of such rows, each product rounded, have kBits behind the point.
struct ScaleSums {
  static constexpr int kBits = 6;
  static constexpr int kBias = (128 << kBits) + (1 << (kBits - 1));  // the middle, half a step
  static constexpr int weights_for(int one) { return ((1 << (15 + kBits)) + one / 2) / one; }
};

// A row's horizontal filter. Four neighbours have a common start; `shuffles` has the places of each
// one's first two samples in the 16 from there on. The other taps follow them. Sixteen neighbours
// have their weights side by side, two taps of each.
struct RowTaps {
  static constexpr int kMultiple = 16;  // to which widths are filled up
  static size_t place(size_t x, size_t tap, size_t taps) {
    return (x / 16 * (taps / 2) + tap / 2) * 32 + x % 16 * 2 + tap % 2;
  }
  const int32_t* starts;
  const uint8_t* shuffles;
  const int8_t* weights;
  int taps;        // even
  bool is_dense;   // eight neighbours have the same start
  bool is_half;    // each start is two after the one before, and all weights are the same
  int pair_shift;  // of each sum of two products; 0 where they are dense
  int middle;      // subtracted from each sum
};

// Rows to add up, each with a weight.
struct RowSum {
  const int16_t* const* rows;
  const int16_t* weights;
  int count;
};

// Counts are samples of one kind: pairs, where two kinds alternate. `pairs` of words are those of
// P010, which has its ten bits at the top.
struct RowKernels {
  int (*rgb_to_yuv)(const RgbRows& rows, const RgbCoefficients& coefficients);
  int (*rgb_to_yuv444)(const RgbRow444& row, const RgbCoefficients& coefficients);
  int (*split)(const uint8_t* pairs, uint8_t* first, uint8_t* second, int count);
  int (*merge)(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int count);
  int (*unpack)(const PackedRows& rows);
  int (*narrow)(const uint8_t* words, uint8_t* bytes, int count, const NarrowScale& scale);
  int (*lower)(const uint8_t* words, uint8_t* to, int count);
  int (*split_lower)(const uint8_t* pairs, uint8_t* first, uint8_t* second, int count);
  int (*recolour_luma)(const YuvRow& in, uint8_t* y, int width, const RecolourWeights& weights);
  int (*recolour_chroma)(const YuvRow& in, uint8_t* u, uint8_t* v, int count,
                         const RecolourWeights& weights);
  // `width` is a multiple of RowTaps::kMultiple; 16 + taps bytes can be read from each start,
  // which may lie before `from`.
  int (*scale_row)(const uint8_t* from, const RowTaps& taps, int16_t* to, int width);
  int (*combine_rows)(const RowSum& sum, uint8_t* to, int width);
};

// Null for the plain level.
const RowKernels* row_kernels(CpuLevel level);

}  // namespace zeva
