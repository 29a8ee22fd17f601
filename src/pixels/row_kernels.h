// What the steps do with rows, and the vector code for it. Each kernel does as many samples from
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

struct RowKernels {
  int (*rgb_to_yuv)(const RgbRows& rows, const RgbCoefficients& coefficients);
};

// Null for the plain level.
const RowKernels* row_kernels(CpuLevel level);

}  // namespace zeva
