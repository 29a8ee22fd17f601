// The operations of row_kernels_impl.h on registers of 16 bytes.
#if defined(__x86_64__)

#include <immintrin.h>

#include "row_kernels_x86.h"

// No flag for the whole file: code of headers would then need the instructions, too.
#define ZEVA_SIMD __attribute__((target("sse4.1")))
#define ZEVA_OP ZEVA_SIMD __attribute__((always_inline)) inline

namespace zeva {
namespace {

using V = __m128i;

ZEVA_OP V load(const void* p) { return _mm_loadu_si128(static_cast<const V*>(p)); }
ZEVA_OP void store(void* p, V a) { _mm_storeu_si128(static_cast<V*>(p), a); }
ZEVA_OP V set32(int32_t a) { return _mm_set1_epi32(a); }
ZEVA_OP V set16(int a) { return _mm_set1_epi16(static_cast<int16_t>(a)); }
ZEVA_OP V and_bits(V a, V b) { return _mm_and_si128(a, b); }
ZEVA_OP V add16(V a, V b) { return _mm_add_epi16(a, b); }
ZEVA_OP V add32(V a, V b) { return _mm_add_epi32(a, b); }
ZEVA_OP V madd(V a, V b) { return _mm_madd_epi16(a, b); }
// Bytes without a sign by bytes with one.
ZEVA_OP V madd8(V a, V b) { return _mm_maddubs_epi16(a, b); }
template <int kBits>
ZEVA_OP V shift_right16(V a) {
  return _mm_srli_epi16(a, kBits);
}
template <int kBits>
ZEVA_OP V shift_right32(V a) {
  return _mm_srai_epi32(a, kBits);
}

template <int kBits>
ZEVA_OP V shift_left16(V a) {
  return _mm_slli_epi16(a, kBits);
}
ZEVA_OP V shift_left16(V a, int bits) { return _mm_slli_epi16(a, bits); }
template <int kBits>
ZEVA_OP V shift_right16_signed(V a) {
  return _mm_srai_epi16(a, kBits);
}
ZEVA_OP V shift_right16_signed(V a, int bits) { return _mm_sra_epi16(a, _mm_cvtsi32_si128(bits)); }
template <int kBits>
ZEVA_OP V shift_right32_unsigned(V a) {
  return _mm_srli_epi32(a, kBits);
}
ZEVA_OP V subtract16(V a, V b) { return _mm_sub_epi16(a, b); }
ZEVA_OP V average8(V a, V b) { return _mm_avg_epu8(a, b); }
ZEVA_OP V shuffle8(V a, V places) { return _mm_shuffle_epi8(a, places); }
ZEVA_OP V multiply_round15(V a, V b) { return _mm_mulhrs_epi16(a, b); }

// Within each group of 16 bytes. What was unpacked by these is in order when it is packed again.
ZEVA_OP V unpack_low8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
ZEVA_OP V unpack_high8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
ZEVA_OP V unpack_low16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
ZEVA_OP V unpack_high16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
ZEVA_OP V pack16(V a, V b) { return _mm_packus_epi16(a, b); }
ZEVA_OP V pack32(V a, V b) { return _mm_packs_epi32(a, b); }

// Across the whole register: all of a, then all of b.
ZEVA_OP V narrow16(V a, V b) { return pack16(a, b); }
ZEVA_OP V narrow32(V a, V b) { return pack32(a, b); }

ZEVA_OP V narrow_four(V a, V b, V c, V d) { return pack16(pack32(a, b), pack32(c, d)); }

// The bytes of half a register as words.
ZEVA_OP V load_widened(const uint8_t* p) {
  return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const V*>(p)));
}

ZEVA_OP void store_halves(uint8_t* first, uint8_t* second, V a) {
  _mm_storel_epi64(reinterpret_cast<V*>(first), a);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(second), _mm_unpackhi_epi64(a, a));
}

// Four pixels of three bytes.
constexpr int kRgb24ReadAhead = 2;  // pixels beyond these, of which it reads
ZEVA_OP V load_rgb24(const uint8_t* p) { return load(p); }

// The places of their first and third bytes, as words, and of their second ones.
ZEVA_OP V rgb24_even() {
  return _mm_setr_epi8(0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1);
}
ZEVA_OP V rgb24_odd() {
  return _mm_setr_epi8(1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1);
}

// Sums of neighbours: those of a, then those of b.
ZEVA_OP V add_pairs32(V a, V b) {
  const __m128 x = _mm_castsi128_ps(a);
  const __m128 y = _mm_castsi128_ps(b);
  return _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(x, y, 0x88)),
                       _mm_castps_si128(_mm_shuffle_ps(x, y, 0xdd)));
}

// A row's samples are `a0`, then `b0`, as numbers of 32 bits; the other row's `a1` and `b1`.
ZEVA_OP void store_rows(uint8_t* row0, uint8_t* row1, V a0, V b0, V a1, V b1) {
  const V bytes = _mm_packus_epi16(_mm_packs_epi32(a0, b0), _mm_packs_epi32(a1, b1));
  store_halves(row0, row1, bytes);
}

// `u` and `v` are as add_pairs32 gives them.
ZEVA_OP void store_chroma(uint8_t* to_u, uint8_t* to_v, V u, V v) {
  const V words = _mm_packs_epi32(u, v);
  const V bytes = _mm_packus_epi16(words, words);
  if (to_v != nullptr) {
    const int32_t four_u = _mm_cvtsi128_si32(bytes);
    const int32_t four_v = _mm_extract_epi32(bytes, 1);
    memcpy(to_u, &four_u, 4);
    memcpy(to_v, &four_v, 4);
  } else {
    _mm_storel_epi64(reinterpret_cast<V*>(to_u),
                     _mm_unpacklo_epi8(bytes, _mm_srli_epi64(bytes, 32)));
  }
}

// Sixteen bytes for each half of a register of 32: here there is one only.
ZEVA_OP V load_two(const uint8_t* first, const uint8_t* last) {
  (void)last;
  return load(first);
}

// The first eight bytes of `a` and the last eight of `b`.
ZEVA_OP V join_halves(V a, V b) { return _mm_blend_epi16(a, b, 0xf0); }

}  // namespace
}  // namespace zeva

#include "row_kernels_impl.h"

const zeva::RowKernels zeva::kSse41Kernels = zeva::kKernels;

#endif
