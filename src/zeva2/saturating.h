// Arithmetic on time stamps that stops at the ends of the range. What a host gives may be any
// number.
#pragma once

#include <cstdint>

namespace zeva {

// The smallest int64 is no time stamp: FFmpeg's mark for "none".
inline constexpr int64_t kMaxStamp = INT64_MAX;
inline constexpr int64_t kMinStamp = -INT64_MAX;

inline int64_t saturating_add(int64_t a, int64_t b) {
  if (b > 0) return a > kMaxStamp - b ? kMaxStamp : a + b;
  if (b < kMinStamp) b = kMinStamp;
  return a < kMinStamp - b ? kMinStamp : a + b;
}

inline int64_t saturating_sub(int64_t a, int64_t b) {
  return saturating_add(a, b < kMinStamp ? kMaxStamp : -b);
}

// Towards zero.
inline int64_t saturating_trunc(double value) {
  if (value >= 0x1p63) return kMaxStamp;
  if (value <= -0x1p63) return kMinStamp;
  return static_cast<int64_t>(value);
}

}  // namespace zeva
