// Packed RGB of eight bits into YUV 4:2:0.
#pragma once

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// Any order of the colours, with or without a fourth byte (alpha is left out), into planar 4:2:0 or
// NV12 of the same size, in the target's matrix and range. Chroma is that of the mean of 2x2
// pixels, so it sits in their centre; an odd last column or row counts twice.
class RgbToYuv : public PictureStep {
 public:
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  RgbToYuv(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  const RowKernels* kernels;
  RgbCoefficients coefficients;
  int pixel_bytes;
};

}  // namespace zeva
