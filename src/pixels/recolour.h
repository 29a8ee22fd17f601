// Eight-bit planar YUV in another matrix or range.
#pragma once

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// 4:2:0 or 4:2:2 of the same size. A pixel takes the chroma sample that it shares, so nothing has
// to be scaled, and the colours of RGB that YUV goes beyond are not cut off.
class Recolour : public PictureStep {
 public:
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  Recolour(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  const RowKernels* kernels;
  RecolourWeights weights;
};

}  // namespace zeva
