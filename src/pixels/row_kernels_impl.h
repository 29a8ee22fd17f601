// The kernels, written once for all widths of register. A source that includes this has defined V,
// a register of whole numbers, the operations on it (ZEVA_OP) and the attribute of a kernel
// (ZEVA_SIMD). Helpers must be ZEVA_OP: a register passed on the stack would have to be aligned
// more strictly than 64-bit Windows aligns stacks.
#pragma once

#include <cstdint>

#include "row_kernels.h"

namespace zeva {
namespace {

// ---- RGB
// Of a pixel's four bytes, one register takes the first and the third as numbers of 16 bits,
// another one the second and the fourth. A multiplication that adds neighbours (madd) then gives
// half of a weighted sum from each.

constexpr int kPixels = sizeof(V) / 4;  // a register

struct Pixels {
  V even;
  V odd;
};

struct PixelWeights {
  V even;
  V odd;
};

ZEVA_OP V pair32(int first, int second) {
  return set32(static_cast<int32_t>((static_cast<uint32_t>(second) << 16) |
                                    (static_cast<uint32_t>(first) & 0xffff)));
}

ZEVA_OP PixelWeights weights_of(const int16_t c[4]) {
  return {pair32(c[0], c[2]), pair32(c[1], c[3])};
}

template <int kPixelBytes>
ZEVA_OP Pixels load_pixels(const uint8_t* p) {
  const V bytes = kPixelBytes == 4 ? load(p) : load_rgb24(p);
  return {and_bits(bytes, set16(0xff)), shift_right16<8>(bytes)};
}

ZEVA_OP V weigh(const Pixels& p, const PixelWeights& w, V bias) {
  return add32(add32(madd(p.even, w.even), bias), madd(p.odd, w.odd));
}

ZEVA_OP Pixels add_four(const Pixels& a0, const Pixels& b0, const Pixels& a1, const Pixels& b1) {
  return {add_pairs32(add16(a0.even, a1.even), add16(b0.even, b1.even)),
          add_pairs32(add16(a0.odd, a1.odd), add16(b0.odd, b1.odd))};
}

// Two rows or one, which then counts twice.
template <int kPixelBytes, bool kTwo>
ZEVA_SIMD int rgb_rows(const RgbRows& rows, const RgbCoefficients& c) {
  constexpr int kStep = 2 * kPixels;
  constexpr int kReadAhead = kPixelBytes == 4 ? 0 : kRgb24ReadAhead;
  const PixelWeights y = weights_of(c.y);
  const PixelWeights u = weights_of(c.u);
  const PixelWeights v = weights_of(c.v);
  const V y_bias = set32(c.y_bias);
  const V chroma_bias = set32(c.chroma_bias);
  int x = 0;
  for (; x + kStep + kReadAhead <= rows.width; x += kStep) {
    const uint8_t* in0 = rows.in[0] + x * kPixelBytes;
    const uint8_t* in1 = rows.in[1] + x * kPixelBytes;
    const Pixels a0 = load_pixels<kPixelBytes>(in0);
    const Pixels b0 = load_pixels<kPixelBytes>(in0 + kPixels * kPixelBytes);
    const Pixels a1 = kTwo ? load_pixels<kPixelBytes>(in1) : a0;
    const Pixels b1 = kTwo ? load_pixels<kPixelBytes>(in1 + kPixels * kPixelBytes) : b0;
    constexpr int kBits = RgbCoefficients::kBits;
    store_rows(rows.y[0] + x, rows.y[1] + x, shift_right32<kBits>(weigh(a0, y, y_bias)),
               shift_right32<kBits>(weigh(b0, y, y_bias)),
               shift_right32<kBits>(weigh(a1, y, y_bias)),
               shift_right32<kBits>(weigh(b1, y, y_bias)));
    const Pixels sum = add_four(a0, b0, a1, b1);
    store_chroma(rows.u + (rows.v != nullptr ? x / 2 : x),
                 rows.v != nullptr ? rows.v + x / 2 : nullptr,
                 shift_right32<kBits + 2>(weigh(sum, u, chroma_bias)),
                 shift_right32<kBits + 2>(weigh(sum, v, chroma_bias)));
  }
  return x;
}

int rgb_to_yuv(const RgbRows& rows, const RgbCoefficients& coefficients) {
  const bool two = rows.in[0] != rows.in[1];
  if (rows.pixel_bytes == 4) {
    return two ? rgb_rows<4, true>(rows, coefficients) : rgb_rows<4, false>(rows, coefficients);
  }
  return two ? rgb_rows<3, true>(rows, coefficients) : rgb_rows<3, false>(rows, coefficients);
}

template <int kPixelBytes>
ZEVA_SIMD int rgb_row_444(const RgbRow444& row, const RgbCoefficients& c) {
  constexpr int kStep = 4 * kPixels;
  constexpr int kReadAhead = kPixelBytes == 4 ? 0 : kRgb24ReadAhead;
  constexpr int kBits = RgbCoefficients::kBits;
  const PixelWeights weights[3] = {weights_of(c.y), weights_of(c.u), weights_of(c.v)};
  const V bias[3] = {set32(c.y_bias), set32(c.chroma_bias >> 2), set32(c.chroma_bias >> 2)};
  uint8_t* const to[3] = {row.y, row.u, row.v};
  int x = 0;
  for (; x + kStep + kReadAhead <= row.width; x += kStep) {
    Pixels p[4];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
      p[k] = load_pixels<kPixelBytes>(row.in + (x + k * kPixels) * kPixelBytes);
    }
#pragma GCC unroll 3
    for (int i = 0; i < 3; ++i) {
      store(to[i] + x, narrow_four(shift_right32<kBits>(weigh(p[0], weights[i], bias[i])),
                                   shift_right32<kBits>(weigh(p[1], weights[i], bias[i])),
                                   shift_right32<kBits>(weigh(p[2], weights[i], bias[i])),
                                   shift_right32<kBits>(weigh(p[3], weights[i], bias[i]))));
    }
  }
  return x;
}

int rgb_to_yuv444(const RgbRow444& row, const RgbCoefficients& coefficients) {
  return row.pixel_bytes == 4 ? rgb_row_444<4>(row, coefficients)
                              : rgb_row_444<3>(row, coefficients);
}

// ---- other orders of the same samples

constexpr int kBytes = sizeof(V);
constexpr int kWords = kBytes / 2;
constexpr int kGroups = kWords / 4;

ZEVA_OP V low_bytes(V a) { return and_bits(a, set16(0xff)); }

ZEVA_SIMD int split(const uint8_t* pairs, uint8_t* first, uint8_t* second, int count) {
  int i = 0;
  for (; i + kBytes <= count; i += kBytes) {
    const V a = load(pairs + 2 * i);
    const V b = load(pairs + 2 * i + kBytes);
    store(first + i, narrow16(low_bytes(a), low_bytes(b)));
    store(second + i, narrow16(shift_right16<8>(a), shift_right16<8>(b)));
  }
  return i;
}

ZEVA_SIMD int merge(const uint8_t* first, const uint8_t* second, uint8_t* pairs, int count) {
  int i = 0;
  for (; i + kWords <= count; i += kWords) {
    store(pairs + 2 * i, add16(load_widened(first + i), shift_left16<8>(load_widened(second + i))));
  }
  return i;
}

// Stores a row's luma, and returns its chroma, U and V alternating.
template <bool kLumaFirst>
ZEVA_OP V unpack_row(const uint8_t* in, uint8_t* y) {
  const V a = load(in);
  const V b = load(in + kBytes);
  const V even = narrow16(low_bytes(a), low_bytes(b));
  const V odd = narrow16(shift_right16<8>(a), shift_right16<8>(b));
  store(y, kLumaFirst ? even : odd);
  return kLumaFirst ? odd : even;
}

template <bool kLumaFirst>
ZEVA_SIMD int unpack_rows(const PackedRows& rows) {
  int x = 0;
  for (; x + kBytes <= rows.width; x += kBytes) {
    const V chroma0 = unpack_row<kLumaFirst>(rows.in[0] + 2 * x, rows.y[0] + x);
    const V chroma1 = unpack_row<kLumaFirst>(rows.in[1] + 2 * x, rows.y[1] + x);
    const V chroma = average8(chroma0, chroma1);
    store_halves(rows.u + x / 2, rows.v + x / 2,
                 narrow16(low_bytes(chroma), shift_right16<8>(chroma)));
  }
  return x;
}

int unpack(const PackedRows& rows) {
  return rows.luma_first ? unpack_rows<true>(rows) : unpack_rows<false>(rows);
}

ZEVA_OP V narrow_words(const uint8_t* words, const NarrowScale& scale) {
  const V ten_bits = shift_right16<1>(shift_left16(load(words), scale.left));
  const V scaled = subtract16(ten_bits, multiply_round15(ten_bits, set16(scale.less)));
  return shift_right16<7>(add16(scaled, set16(scale.offset)));
}

ZEVA_SIMD int narrow(const uint8_t* words, uint8_t* bytes, int count, const NarrowScale& scale) {
  int i = 0;
  for (; i + kBytes <= count; i += kBytes) {
    store(bytes + i, narrow16(narrow_words(words + 2 * i, scale),
                              narrow_words(words + 2 * i + kBytes, scale)));
  }
  return i;
}

ZEVA_SIMD int lower(const uint8_t* words, uint8_t* to, int count) {
  int i = 0;
  for (; i + kWords <= count; i += kWords) store(to + 2 * i, shift_right16<6>(load(words + 2 * i)));
  return i;
}

ZEVA_SIMD int split_lower(const uint8_t* pairs, uint8_t* first, uint8_t* second, int count) {
  int i = 0;
  for (; i + kWords <= count; i += kWords) {
    const V a = shift_right16<6>(load(pairs + 4 * i));
    const V b = shift_right16<6>(load(pairs + 4 * i + kBytes));
    const V low = set32(0xffff);
    store(first + 2 * i, narrow32(and_bits(a, low), and_bits(b, low)));
    store(second + 2 * i, narrow32(shift_right32_unsigned<16>(a), shift_right32_unsigned<16>(b)));
  }
  return i;
}

// ---- another matrix or range

// Weighted sums of U and V, as words.
template <int kShift>
ZEVA_OP V weigh_chroma(V u, V v, V weights, V bias) {
  return pack32(shift_right32<kShift>(add32(madd(unpack_low16(u, v), weights), bias)),
                shift_right32<kShift>(add32(madd(unpack_high16(u, v), weights), bias)));
}

// Luma in words, with a part from chroma.
ZEVA_OP V scale_luma(V y, V weight, V chroma_part) {
  const V scaled = multiply_round15(shift_left16<7>(y), weight);
  return shift_right16_signed<RecolourWeights::kLumaBits>(add16(scaled, chroma_part));
}

ZEVA_SIMD int recolour_luma(const YuvRow& in, uint8_t* to, int width, const RecolourWeights& w) {
  constexpr int kShift = RecolourWeights::kBits - RecolourWeights::kLumaBits;
  const V zero = set32(0);
  const V weight = set16(w.y);
  const V chroma_weights = pair32(w.y_u, w.y_v);
  const V bias = set32(w.y_bias);
  int x = 0;
  for (; x + kBytes <= width; x += kBytes) {
    const V part = weigh_chroma<kShift>(load_widened(in.u + x / 2), load_widened(in.v + x / 2),
                                        chroma_weights, bias);
    const V y = load(in.y + x);
    store(to + x, pack16(scale_luma(unpack_low8(y, zero), weight, unpack_low16(part, part)),
                         scale_luma(unpack_high8(y, zero), weight, unpack_high16(part, part))));
  }
  return x;
}

ZEVA_SIMD int recolour_chroma(const YuvRow& in, uint8_t* to_u, uint8_t* to_v, int count,
                              const RecolourWeights& w) {
  constexpr int kShift = RecolourWeights::kBits;
  int i = 0;
  for (; i + kWords <= count; i += kWords) {
    const V u = load_widened(in.u + i);
    const V v = load_widened(in.v + i);
    store_halves(to_u + i, to_v + i,
                 narrow16(weigh_chroma<kShift>(u, v, pair32(w.u_u, w.u_v), set32(w.u_bias)),
                          weigh_chroma<kShift>(u, v, pair32(w.v_u, w.v_v), set32(w.v_bias))));
  }
  return i;
}

// ---- scaling

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

int scale_row(const uint8_t* from, const RowTaps& taps, int16_t* to, int width) {
  if (!taps.is_dense) return scale_row_by<false, 0>(from, taps, to, width);
  switch (taps.taps) {
    case 4:
      return scale_row_by<true, 4>(from, taps, to, width);
    case 6:
      return scale_row_by<true, 6>(from, taps, to, width);
    case 8:
      return scale_row_by<true, 8>(from, taps, to, width);
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

// ----

constexpr RowKernels kKernels = {rgb_to_yuv,    rgb_to_yuv444,   split,     merge,
                                 unpack,        narrow,          lower,     split_lower,
                                 recolour_luma, recolour_chroma, scale_row, combine_rows};

}  // namespace
}  // namespace zeva
