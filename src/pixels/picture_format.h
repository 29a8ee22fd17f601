// The meaning of a picture's numbers: size, pixel format, matrix and range.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// `matrix` (ITU-T H.273, matrix coefficients) and `range` apply to luma and chroma; RGB has none
// and is always full range. After `settle` both are specified.
struct PictureFormat {
  int width = 0;
  int height = 0;
  AVPixelFormat pixels = AV_PIX_FMT_NONE;
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  AVColorRange range = AVCOL_RANGE_UNSPECIFIED;

  bool has_area() const { return width > 0 && height > 0; }
  bool is_rgb() const;
  bool operator==(const PictureFormat& other) const;
  bool operator!=(const PictureFormat& other) const { return !(*this == other); }
};

// As the frame describes itself.
PictureFormat format_of(const AVFrame& frame);

// The matrix that players take for untagged pictures of that size: BT.709 from 720p on, else
// BT.601.
AVColorSpace usual_matrix(int width, int height);

// Fills in what is unspecified: for RGB the identity in full range, for the formats that imply the
// full range (YUVJ) that one, else the limited range and the usual matrix. YUV pictures cannot have
// the identity as their matrix; it counts as unspecified.
PictureFormat settle(PictureFormat format);

// Settled: what the frame does not say of itself is as in `otherwise`, which is settled.
PictureFormat described(const AVFrame& frame, const PictureFormat& otherwise);

// Luma and chroma of such a matrix are linear in red, green and blue, as stored (H.273, 8.3).
bool is_linear(AVColorSpace matrix);

// Both settled.
bool can_convert(const PictureFormat& from, const PictureFormat& to);

}  // namespace zeva
