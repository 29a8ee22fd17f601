// The same samples in another order or depth.
#pragma once

#include <vector>

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// Between planar 4:2:0 and NV12, from packed 4:2:2 (YUYV, UYVY) to planar 4:2:2 or 4:2:0 (chroma
// is the mean of two lines), from ten bits (P010, planar) to eight, rounded, and from P010 to
// planar. Size, matrix and range stay. Also copies.
class Repack : public PictureStep {
 public:
  static bool supports(AVPixelFormat from, AVPixelFormat to);

  Repack(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  void narrow_row(const uint8_t* words, uint8_t* bytes, int count, const NarrowScale& scale) const;

  void copy(const AVFrame& in, AVFrame& out);
  void split_chroma(const AVFrame& in, AVFrame& out);
  void merge_chroma(const AVFrame& in, AVFrame& out);
  void unpack(const AVFrame& in, AVFrame& out);
  void narrow_planar(const AVFrame& in, AVFrame& out);
  void narrow_p010(const AVFrame& in, AVFrame& out);
  void lower_p010(const AVFrame& in, AVFrame& out);

  using Way = void (Repack::*)(const AVFrame& in, AVFrame& out);
  static Way find_way(AVPixelFormat from, AVPixelFormat to);

  const RowKernels* kernels;
  Way way;
  NarrowScale luma_scale{};
  NarrowScale chroma_scale{};
  std::vector<uint8_t> chroma_row;  // U and V alternating, on the way from P010
};

// NV12 with its chroma taken apart, for a picture between two steps: it points to the luma of the
// source.
class BorrowedLuma : public PictureStep {
 public:
  BorrowedLuma(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& between) override;

 private:
  const RowKernels* kernels;
};

}  // namespace zeva
