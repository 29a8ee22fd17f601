#include "colours.h"

#include "pixel_formats.h"

namespace zeva_tool {
namespace {

using Tags = ColourLimits::Tags;

constexpr Colours kOf709{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, AVCOL_PRI_BT709, AVCOL_TRC_BT709};

bool is_hd(int width, int height) { return width >= 1280 || height > 576; }

AVColorSpace usual_matrix(int width, int height) {
  return is_hd(width, height) ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

Colours usual_colours(int width, int height) {
  if (is_hd(width, height)) return kOf709;
  bool lines_of_pal = height == 576 || height == 288;
  return {AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG,
          lines_of_pal ? AVCOL_PRI_BT470BG : AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M};
}

// Matrices that differ in two shares only, which swscale knows.
bool is_plain(AVColorSpace matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_BT2020_NCL:
      return true;
    default:
      return false;
  }
}

bool is_unusual(AVColorSpace matrix) {
  return matrix == AVCOL_SPC_YCGCO || matrix == AVCOL_SPC_BT2020_CL || matrix == AVCOL_SPC_ICTCP;
}

bool is_wide(AVColorPrimaries primaries) {
  return primaries == AVCOL_PRI_BT2020 || primaries == AVCOL_PRI_SMPTE431 ||
         primaries == AVCOL_PRI_SMPTE432;
}

// The matrix of pictures with those primaries, for the picture's size where they do not tell.
AVColorSpace matrix_by(const Colours& c, int width, int height) {
  if (c.is_hdr() || c.primaries == AVCOL_PRI_BT2020) return AVCOL_SPC_BT2020_NCL;
  return usual_matrix(width, height);
}

Colours settled_yuv(const AVFrame& picture) {
  Colours c = colours_of(picture);
  bool silent = c.matrix == AVCOL_SPC_UNSPECIFIED && c.primaries == AVCOL_PRI_UNSPECIFIED &&
                c.transfer == AVCOL_TRC_UNSPECIFIED;
  AVColorRange range = c.range;
  if (silent) c = usual_colours(picture.width, picture.height);
  if (c.is_hdr() && c.primaries == AVCOL_PRI_UNSPECIFIED) c.primaries = AVCOL_PRI_BT2020;
  if (!is_plain(c.matrix) && !is_unusual(c.matrix)) {
    c.matrix = matrix_by(c, picture.width, picture.height);
  }
  // Who stores luma alone and does not say its range has used all of it.
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  bool grey = d && d->nb_components == 1;
  bool full = range == AVCOL_RANGE_JPEG || (grey && range == AVCOL_RANGE_UNSPECIFIED);
  c.range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  return c;
}

// The range is that of luma and chroma that are made of it.
Colours settled_rgb(const AVFrame& picture) {
  Colours c = colours_of(picture);
  if (c.transfer == AVCOL_TRC_UNSPECIFIED) c.transfer = AVCOL_TRC_BT709;
  if (c.primaries == AVCOL_PRI_UNSPECIFIED) {
    c.primaries = c.is_hdr() ? AVCOL_PRI_BT2020 : AVCOL_PRI_BT709;
  }
  c.matrix = c.primaries == AVCOL_PRI_BT2020 ? AVCOL_SPC_BT2020_NCL : AVCOL_SPC_BT709;
  c.range = AVCOL_RANGE_MPEG;
  return c;
}

bool can_say(Tags tags, AVColorSpace matrix) {
  return tags == Tags::kAll || (tags == Tags::kTelevision && matrix != AVCOL_SPC_BT2020_NCL);
}

// For an encoder that can say nothing, or not this: what players take for granted.
Colours guessed(const Colours& source, const ColourLimits& limits) {
  Colours c = usual_colours(limits.width, limits.height);
  if (is_wide(source.primaries) || source.is_hdr()) return c;
  c.primaries = source.primaries;
  c.transfer = source.transfer;
  return c;
}

}  // namespace

bool Colours::is_hdr() const {
  return transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
}

Colours colours_of(const AVFrame& frame) {
  Colours c{frame.colorspace, frame.color_range, frame.color_primaries, frame.color_trc};
  // Of numbers that H.273 reserves, the encoder would complain.
  if (c.matrix == AVCOL_SPC_RESERVED || !av_color_space_name(c.matrix)) {
    c.matrix = AVCOL_SPC_UNSPECIFIED;
  }
  if (c.primaries == AVCOL_PRI_RESERVED0 || c.primaries == AVCOL_PRI_RESERVED ||
      !av_color_primaries_name(c.primaries)) {
    c.primaries = AVCOL_PRI_UNSPECIFIED;
  }
  if (c.transfer == AVCOL_TRC_RESERVED0 || c.transfer == AVCOL_TRC_RESERVED ||
      !av_color_transfer_name(c.transfer)) {
    c.transfer = AVCOL_TRC_UNSPECIFIED;
  }
  if (implies_full_range(static_cast<AVPixelFormat>(frame.format))) c.range = AVCOL_RANGE_JPEG;
  return c;
}

Colours later_colours(const AVFrame& picture, const Colours& first) {
  if (is_rgb(static_cast<AVPixelFormat>(picture.format))) return first;
  Colours c = colours_of(picture);
  const bool same_matrix =
      c.matrix == AVCOL_SPC_UNSPECIFIED || c.matrix == AVCOL_SPC_RGB || c.matrix == first.matrix;
  if (same_matrix && c.primaries == AVCOL_PRI_UNSPECIFIED) c.primaries = first.primaries;
  if (same_matrix && c.primaries == first.primaries && c.transfer == AVCOL_TRC_UNSPECIFIED) {
    c.transfer = first.transfer;
  }
  if (same_matrix) c.matrix = first.matrix;
  if (c.range == AVCOL_RANGE_UNSPECIFIED) c.range = first.range;
  if (c.is_hdr() && c.primaries == AVCOL_PRI_UNSPECIFIED) c.primaries = AVCOL_PRI_BT2020;
  return c;
}

bool differ_in_light(const Colours& from, const Colours& to) {
  if (from.is_hdr() != to.is_hdr() || is_unusual(from.matrix) != is_unusual(to.matrix)) return true;
  if (is_unusual(from.matrix) && from.matrix != to.matrix) return true;
  if (from.is_hdr() && from.transfer != to.transfer) return true;
  const bool wide = is_wide(from.primaries);
  return wide != is_wide(to.primaries) || (wide && from.primaries != to.primaries);
}

ColourPlan plan_colours(const AVFrame& picture, const ColourLimits& asked) {
  ColourLimits limits = asked;
  if (limits.width == 0) limits.width = picture.width;
  if (limits.height == 0) limits.height = picture.height;
  bool rgb = is_rgb(static_cast<AVPixelFormat>(picture.format));
  ColourPlan plan;
  plan.source = plan.movie = rgb ? settled_rgb(picture) : settled_yuv(picture);
  const Colours& source = plan.source;
  Colours& movie = plan.movie;
  if (source.is_hdr() && !limits.ten_bits) movie = kOf709;
  if (is_unusual(movie.matrix)) movie.matrix = matrix_by(source, picture.width, picture.height);
  if (!can_say(limits.tags, movie.matrix)) movie = guessed(source, limits);
  movie.range = AVCOL_RANGE_MPEG;
  bool other_light = movie.transfer != source.transfer || movie.primaries != source.primaries;
  plan.not_by_matrix = is_unusual(source.matrix) || other_light;
  return plan;
}

}  // namespace zeva_tool
