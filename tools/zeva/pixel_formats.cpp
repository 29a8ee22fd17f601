#include "pixel_formats.h"

#include <algorithm>
#include <cstring>

namespace zeva_tool {
namespace {

constexpr bool kBigEndian = AV_NE(true, false);
constexpr uint64_t kNoNumbers = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM |
                                AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_FLOAT |
                                AV_PIX_FMT_FLAG_BAYER;

bool native(const AVPixFmtDescriptor& d) {
  bool big = (d.flags & AV_PIX_FMT_FLAG_BE) != 0;
  return d.comp[0].depth <= 8 || big == kBigEndian;
}

}  // namespace

bool is_rgb(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return d && (d->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

bool is_palette_like(AVPixelFormat format) {
  constexpr int kFewBits = 4;
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return is_rgb(format) && ((d->flags & AV_PIX_FMT_FLAG_PAL) != 0 || depth_of(format) <= kFewBits);
}

bool implies_full_range(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return d && strncmp(d->name, "yuvj", 4) == 0;
}

int depth_of(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return d ? d->comp[0].depth : 8;
}

bool has_sample_planes(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  if (!d || !has_whole_samples(format)) return false;
  for (int i = 0; i < d->nb_components; ++i) {
    const AVComponentDescriptor& c = d->comp[i];
    if (c.step != (c.depth > 8 ? 2 : 1) || c.shift != 0) return false;
  }
  return d->nb_components == av_pix_fmt_count_planes(format);
}

bool has_whole_samples(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  if (!d || (d->flags & kNoNumbers) != 0 || !native(*d)) return false;
  return std::all_of(d->comp, d->comp + d->nb_components, [&](const AVComponentDescriptor& c) {
    return d->comp[0].depth <= 8 ? c.depth == 8 : c.depth > 8 && c.depth <= 16 && c.step % 2 == 0;
  });
}

AVPixelFormat planar_format(bool rgb, int log2_chroma_w, int log2_chroma_h, int depth) {
  const AVPixFmtDescriptor* d = nullptr;
  while ((d = av_pix_fmt_desc_next(d)) != nullptr) {
    AVPixelFormat format = av_pix_fmt_desc_get_id(d);
    if (d->nb_components == 3 && d->comp[0].depth == depth && has_sample_planes(format) &&
        is_rgb(format) == rgb && !implies_full_range(format) && d->log2_chroma_w == log2_chroma_w &&
        d->log2_chroma_h == log2_chroma_h) {
      return format;
    }
  }
  return AV_PIX_FMT_NONE;
}

}  // namespace zeva_tool
