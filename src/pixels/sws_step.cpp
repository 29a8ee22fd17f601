#include "sws_step.h"

namespace zeva {
namespace {

// swscale knows no constant for neutral brightness, contrast and saturation (16.16).
constexpr int kNeutral = 1 << 16;

// The matrix of a YUV format. For RGB the other side's, since swscale wants one for both.
AVColorSpace matrix_for(const PictureFormat& format, const PictureFormat& other) {
  return format.is_rgb() ? other.matrix : format.matrix;
}

// Without accurate rounding swscale takes short cuts that know one matrix and range, and RGB of
// sixteen bits is no better than eight.
constexpr int kFlags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;

}  // namespace

std::unique_ptr<SwsStep> SwsStep::make(const PictureFormat& from, const PictureFormat& to) {
  SwsPtr scaler(sws_getContext(from.width, from.height, from.pixels, to.width, to.height, to.pixels,
                               kFlags, nullptr, nullptr, nullptr));
  if (!scaler) return nullptr;
  const int* source_table = sws_getCoefficients(matrix_for(from, to));
  const int* target_table = sws_getCoefficients(matrix_for(to, from));
  // Refused where neither side has a matrix: then there is nothing to set.
  sws_setColorspaceDetails(scaler.get(), source_table, from.range == AVCOL_RANGE_JPEG, target_table,
                           to.range == AVCOL_RANGE_JPEG, 0, kNeutral, kNeutral);
  return std::unique_ptr<SwsStep>(new SwsStep(std::move(scaler)));
}

void SwsStep::run(const AVFrame& in, AVFrame& out) {
  sws_scale(scaler.get(), in.data, in.linesize, 0, in.height, out.data, out.linesize);
}

}  // namespace zeva
