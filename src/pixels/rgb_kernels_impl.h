// The kernels that make RGB into YUV, part of row_kernels_impl.h.
#pragma once

#include <cstdint>

#include "row_kernels.h"

namespace zeva {
namespace {

// Of a pixel's four bytes, one register takes the first and the third as numbers of 16 bits,
// another one the second and the fourth. A multiplication that adds neighbours (madd) then gives
// half of a weighted sum from each.

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
  if (kPixelBytes == 3) {
    const V bytes = load_rgb24(p);
    return {shuffle8(bytes, rgb24_even()), shuffle8(bytes, rgb24_odd())};
  }
  const V bytes = load(p);
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

}  // namespace
}  // namespace zeva
