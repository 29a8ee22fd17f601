// The operations of row_kernels_impl.h on registers of 32 bytes. Most instructions work on the two
// halves of a register by themselves; what crosses them puts the samples back into order.
#if defined(__x86_64__)

#include <immintrin.h>

#include "row_kernels_x86.h"

// No flag for the whole file: code of headers would then need the instructions, too.
#define ZEVA_SIMD __attribute__((target("avx2")))
#define ZEVA_OP ZEVA_SIMD __attribute__((always_inline)) inline

namespace zeva {
namespace {

using V = __m256i;

ZEVA_OP V load(const void* p) { return _mm256_loadu_si256(static_cast<const V*>(p)); }
ZEVA_OP __m128i load_half(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
ZEVA_OP void store(void* p, V a) { _mm256_storeu_si256(static_cast<V*>(p), a); }
ZEVA_OP void store_half(void* p, __m128i a) { _mm_storeu_si128(static_cast<__m128i*>(p), a); }
ZEVA_OP V set32(int32_t a) { return _mm256_set1_epi32(a); }
ZEVA_OP V set16(int a) { return _mm256_set1_epi16(static_cast<int16_t>(a)); }
ZEVA_OP V and_bits(V a, V b) { return _mm256_and_si256(a, b); }
ZEVA_OP V add16(V a, V b) { return _mm256_add_epi16(a, b); }
ZEVA_OP V add32(V a, V b) { return _mm256_add_epi32(a, b); }
ZEVA_OP V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
// Bytes without a sign by bytes with one.
ZEVA_OP V madd8(V a, V b) { return _mm256_maddubs_epi16(a, b); }
template <int kBits>
ZEVA_OP V shift_right16(V a) {
  return _mm256_srli_epi16(a, kBits);
}
template <int kBits>
ZEVA_OP V shift_right32(V a) {
  return _mm256_srai_epi32(a, kBits);
}

template <int kBits>
ZEVA_OP V shift_left16(V a) {
  return _mm256_slli_epi16(a, kBits);
}
ZEVA_OP V shift_left16(V a, int bits) { return _mm256_slli_epi16(a, bits); }
template <int kBits>
ZEVA_OP V shift_right16_signed(V a) {
  return _mm256_srai_epi16(a, kBits);
}
ZEVA_OP V shift_right16_signed(V a, int bits) {
  return _mm256_sra_epi16(a, _mm_cvtsi32_si128(bits));
}
template <int kBits>
ZEVA_OP V shift_right32_unsigned(V a) {
  return _mm256_srli_epi32(a, kBits);
}
ZEVA_OP V subtract16(V a, V b) { return _mm256_sub_epi16(a, b); }
ZEVA_OP V average8(V a, V b) { return _mm256_avg_epu8(a, b); }
ZEVA_OP V shuffle8(V a, V places) { return _mm256_shuffle_epi8(a, places); }
ZEVA_OP V multiply_round15(V a, V b) { return _mm256_mulhrs_epi16(a, b); }

// Within each group of 16 bytes. What was unpacked by these is in order when it is packed again.
ZEVA_OP V unpack_low8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
ZEVA_OP V unpack_high8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
ZEVA_OP V unpack_low16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
ZEVA_OP V unpack_high16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
ZEVA_OP V pack16(V a, V b) { return _mm256_packus_epi16(a, b); }
ZEVA_OP V pack32(V a, V b) { return _mm256_packs_epi32(a, b); }

// Across the whole register: all of a, then all of b.
ZEVA_OP V narrow16(V a, V b) { return _mm256_permute4x64_epi64(pack16(a, b), 0xd8); }
ZEVA_OP V narrow32(V a, V b) { return _mm256_permute4x64_epi64(pack32(a, b), 0xd8); }

ZEVA_OP V narrow_four(V a, V b, V c, V d) {
  return _mm256_permutevar8x32_epi32(pack16(pack32(a, b), pack32(c, d)),
                                     _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The bytes of half a register as words.
ZEVA_OP V load_widened(const uint8_t* p) { return _mm256_cvtepu8_epi16(load_half(p)); }

ZEVA_OP void store_halves(uint8_t* first, uint8_t* second, V a) {
  store_half(first, _mm256_castsi256_si128(a));
  store_half(second, _mm256_extracti128_si256(a, 1));
}

// Sixteen bytes for each half of a register.
ZEVA_OP V load_two(const uint8_t* first, const uint8_t* last) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(first)), load_half(last), 1);
}

// Eight pixels of three bytes; four of them from either end of the 24.
constexpr int kRgb24ReadAhead = 0;  // pixels beyond these
ZEVA_OP V load_rgb24(const uint8_t* p) { return load_two(p, p + 8); }

// The places of their first and third bytes, as words, and of their second ones.
ZEVA_OP V rgb24_even() {
  return _mm256_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1, 4, -1, 6, -1, 7,
                          -1, 9, -1, 10, -1, 12, -1, 13, -1, 15, -1);
}
ZEVA_OP V rgb24_odd() {
  return _mm256_setr_epi8(1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1, 5, -1, -1,
                          -1, 8, -1, -1, -1, 11, -1, -1, -1, 14, -1, -1, -1);
}

// Sums of neighbours, in the order a01 a23 b01 b23, a45 a67 b45 b67.
ZEVA_OP V add_pairs32(V a, V b) {
  const __m256 x = _mm256_castsi256_ps(a);
  const __m256 y = _mm256_castsi256_ps(b);
  return _mm256_add_epi32(_mm256_castps_si256(_mm256_shuffle_ps(x, y, 0x88)),
                          _mm256_castps_si256(_mm256_shuffle_ps(x, y, 0xdd)));
}

// A row's samples are `a0`, then `b0`, as numbers of 32 bits; the other row's `a1` and `b1`.
ZEVA_OP void store_rows(uint8_t* row0, uint8_t* row1, V a0, V b0, V a1, V b1) {
  const V mixed = _mm256_packus_epi16(_mm256_packs_epi32(a0, b0), _mm256_packs_epi32(a1, b1));
  const V rows = _mm256_permutevar8x32_epi32(mixed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  store_halves(row0, row1, rows);
}

// `u` and `v` are as add_pairs32 gives them.
ZEVA_OP void store_chroma(uint8_t* to_u, uint8_t* to_v, V u, V v) {
  const V words = _mm256_packs_epi32(u, v);
  const V mixed = _mm256_packus_epi16(words, words);
  const __m128i bytes =
      _mm_unpacklo_epi16(_mm256_castsi256_si128(mixed), _mm256_extracti128_si256(mixed, 1));
  if (to_v != nullptr) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to_u), bytes);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to_v), _mm_unpackhi_epi64(bytes, bytes));
  } else {
    store_half(to_u, _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 8)));
  }
}

// Of each 16 bytes, the first eight of `a` and the last eight of `b`.
ZEVA_OP V join_halves(V a, V b) { return _mm256_blend_epi32(a, b, 0xcc); }

}  // namespace
}  // namespace zeva

#include "row_kernels_impl.h"

const zeva::RowKernels zeva::kAvx2Kernels = zeva::kKernels;

#endif
