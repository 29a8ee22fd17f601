// Packed RGB of eight bits into planar YUV or NV12.
#pragma once

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// Any order of the colours, with or without a fourth byte (alpha is left out), into NV12 or
// planar 4:2:0, 4:2:2 or 4:4:4 of the same size, in the target's matrix and range. Chroma is that
// of the mean of 2x2 pixels (4:2:2: 2x1), so it sits in their centre; an odd last column or row
// counts twice.
class RgbToYuv : public PictureStep {
 public:
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  RgbToYuv(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  void convert_rows(const RgbRows& rows, const RgbCoefficients& c) const;
  void convert_row_444(const RgbRow444& row) const;

  const RowKernels* kernels;
  RgbCoefficients coefficients;
  int pixel_bytes;
};

}  // namespace zeva
