#include "sws_step.h"

namespace zeva {
namespace {

// swscale knows no constant for neutral brightness, contrast and saturation (16.16).
constexpr int kNeutral = 1 << 16;

// The matrix of a YUV format. For RGB the other side's, since swscale wants one for both.
AVColorSpace matrix_for(const PictureFormat& format, const PictureFormat& other) {
  return format.is_rgb() ? other.matrix : format.matrix;
}

// RGB of sixteen bits is a stage on the way between two kinds of YUV. swscale's quick way there
// is no better than eight bits.
int flags_for(const PictureFormat& to) {
  const bool deep_rgb = to.is_rgb() && av_pix_fmt_desc_get(to.pixels)->comp[0].depth > 8;
  return deep_rgb ? SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT : SWS_BICUBIC;
}

}  // namespace

std::unique_ptr<SwsStep> SwsStep::make(const PictureFormat& from, const PictureFormat& to) {
  SwsPtr scaler(sws_getContext(from.width, from.height, from.pixels, to.width, to.height, to.pixels,
                               flags_for(to), nullptr, nullptr, nullptr));
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
