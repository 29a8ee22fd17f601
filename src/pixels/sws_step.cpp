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

int is_full(const PictureFormat& format) { return format.range == AVCOL_RANGE_JPEG ? 1 : 0; }

// The ranges must be known when swscale chooses its way: by default both are limited, and a change
// of the range alone would be taken for a plain copy.
SwsPtr make_scaler(const PictureFormat& from, const PictureFormat& to) {
  SwsPtr scaler(sws_alloc_context());
  if (!scaler) return nullptr;
  const struct {
    const char* name;
    int value;
  } settings[] = {
      {"srcw", from.width},         {"srch", from.height},      {"src_format", from.pixels},
      {"src_range", is_full(from)}, {"dstw", to.width},         {"dsth", to.height},
      {"dst_format", to.pixels},    {"dst_range", is_full(to)}, {"sws_flags", kFlags},
  };
  for (const auto& setting : settings) {
    if (av_opt_set_int(scaler.get(), setting.name, setting.value, 0) < 0) return nullptr;
  }
  return sws_init_context(scaler.get(), nullptr, nullptr) < 0 ? nullptr : std::move(scaler);
}

}  // namespace

std::unique_ptr<SwsStep> SwsStep::make(const PictureFormat& from, const PictureFormat& to) {
  SwsPtr scaler = make_scaler(from, to);
  if (!scaler) return nullptr;
  const int* source_table = sws_getCoefficients(matrix_for(from, to));
  const int* target_table = sws_getCoefficients(matrix_for(to, from));
  // Refused where neither side has a matrix: then there is nothing to set.
  sws_setColorspaceDetails(scaler.get(), source_table, is_full(from), target_table, is_full(to), 0,
                           kNeutral, kNeutral);
  return std::unique_ptr<SwsStep>(new SwsStep(std::move(scaler)));
}

void SwsStep::run(const AVFrame& in, AVFrame& out) {
  sws_scale(scaler.get(), in.data, in.linesize, 0, in.height, out.data, out.linesize);
}

}  // namespace zeva
