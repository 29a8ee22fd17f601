#include "picture_converter.h"

#include "logger.h"

namespace zeva {
namespace {

// swscale knows no constant for neutral brightness, contrast and saturation (16.16).
constexpr int kNeutral = 1 << 16;

// Without accurate rounding swscale takes short cuts that know one matrix and range, and
// conversions between two of them are off by up to 4 of 255.
constexpr int kScalerFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;

// The matrix of a YUV format. For RGB the other side's, since swscale wants one for both.
AVColorSpace matrix_for(const PictureFormat& format, const PictureFormat& other) {
  return format.is_rgb() ? other.matrix : format.matrix;
}

}  // namespace

bool PictureConverter::configure(const PictureFormat& source, const PictureFormat& target) {
  from = source;
  to = target;
  scaler.reset(sws_getContext(from.width, from.height, from.pixels, to.width, to.height, to.pixels,
                              kScalerFlags, nullptr, nullptr, nullptr));
  if (!scaler) return false;
  const int* source_table = sws_getCoefficients(matrix_for(from, to));
  const int* target_table = sws_getCoefficients(matrix_for(to, from));
  // Refused where neither side has a matrix: then there is nothing to set.
  sws_setColorspaceDetails(scaler.get(), source_table, from.range == AVCOL_RANGE_JPEG, target_table,
                           to.range == AVCOL_RANGE_JPEG, 0, kNeutral, kNeutral);
  return true;
}

void PictureConverter::convert(const AVFrame& in, AVFrame& out) {
  sws_scale(scaler.get(), in.data, in.linesize, 0, in.height, out.data, out.linesize);
}

}  // namespace zeva
