// The kernels, written once for all widths of register. A source that includes this has defined V,
// a register of whole numbers, the operations on it (ZEVA_OP) and the attribute of a kernel
// (ZEVA_SIMD). Helpers must be ZEVA_OP: a register passed on the stack would have to be aligned
// more strictly than 64-bit Windows aligns stacks.
#pragma once

#include <cstdint>

#include "row_kernels.h"

namespace zeva {
namespace {

constexpr int kBytes = sizeof(V);
constexpr int kWords = kBytes / 2;
constexpr int kPixels = kBytes / 4;

}  // namespace
}  // namespace zeva

#include "rgb_kernels_impl.h"
#include "scale_kernels_impl.h"

namespace zeva {
namespace {

// ---- other orders of the same samples

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

// ----

constexpr RowKernels kKernels = {rgb_to_yuv,    rgb_to_yuv444,   split,     merge,
                                 unpack,        narrow,          lower,     split_lower,
                                 recolour_luma, recolour_chroma, scale_row, combine_rows};

}  // namespace
}  // namespace zeva
