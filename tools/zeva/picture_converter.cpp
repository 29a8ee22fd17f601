#include "picture_converter.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "colour_math.h"
#include "picture_turn.h"
#include "pixel_formats.h"

namespace zeva_tool {
namespace {

constexpr int kNeutral = 1 << 16;  // of swscale's contrast and saturation
constexpr int kFinestDepth = 16;

AVFrame* room(FramePtr& frame, int width, int height, AVPixelFormat pixels) {
  if (frame) return frame.get();
  FramePtr made(av_frame_alloc());
  made->width = width;
  made->height = height;
  made->format = pixels;
  if (av_frame_get_buffer(made.get(), 0) < 0) return nullptr;
  frame = std::move(made);
  return frame.get();
}

// The next finer depth that FFmpeg has such planes of.
AVPixelFormat planes(bool rgb, int log2_chroma_w, int log2_chroma_h, int depth) {
  AVPixelFormat format = AV_PIX_FMT_NONE;
  for (int bits = std::max(depth, 8); format == AV_PIX_FMT_NONE && bits <= kFinestDepth; ++bits) {
    format = planar_format(rgb, log2_chroma_w, log2_chroma_h, bits);
  }
  return format;
}

// Luma and chroma in planes for the change, as fine as the decoder's.
AVPixelFormat change_format(AVPixelFormat decoded) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(decoded);
  if (!d || is_rgb(decoded)) return planes(false, 0, 0, kFinestDepth);
  if (has_sample_planes(decoded) && d->nb_components >= 3) return decoded;
  return planes(false, d->log2_chroma_w, d->log2_chroma_h, depth_of(decoded));
}

// Planes that can be turned: with chroma as fine as luma if its planes cannot.
AVPixelFormat turned_format(AVPixelFormat decoded, int turns) {
  if (turns == 0 || can_turn(decoded, turns)) return decoded;
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(decoded);
  bool square = d && (turns == 2 || d->log2_chroma_w == d->log2_chroma_h);
  return planes(is_rgb(decoded), square ? d->log2_chroma_w : 0, square ? d->log2_chroma_h : 0,
                depth_of(decoded));
}

}  // namespace

bool PictureConverter::Kind::operator==(const Kind& other) const {
  return width == other.width && height == other.height && pixels == other.pixels &&
         matrix == other.matrix && range == other.range;
}

PictureConverter::Pictures PictureConverter::configure(const AVFrame& first, const Wanted& what) {
  wanted = what;
  plan = plan_colours(first, wanted.limits);
  const AVPixelFormat decoded =
      GreyPictures::format_with_chroma(static_cast<AVPixelFormat>(first.format));
  AVPixelFormat pixels = is_palette_like(decoded) ? AV_PIX_FMT_BGRA : decoded;
  if (plan.not_by_matrix) pixels = change_format(pixels);
  common = {first.width, first.height, turned_format(pixels, wanted.turns), plan.source.matrix,
            plan.source.range};
  output = {first.width, first.height, common.pixels, plan.source, plan.movie};
  if (wanted.turns & 1) std::swap(output.width, output.height);
  if (!plan.not_by_matrix) return output;
  int depth = depth_of(common.pixels);
  bool deep = wanted.limits.ten_bits && depth > 8;
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(common.pixels);
  output.pixels = planar_format(false, d.log2_chroma_w, d.log2_chroma_h, deep ? 10 : 8);
  output.colours = plan.movie;
  change = std::make_unique<ColourChange>(ColourChange::Kind{plan.source, depth},
                                          ColourChange::Kind{plan.movie, deep ? 10 : 8},
                                          wanted.peak_nits / kReferenceWhiteNits);
  return output;
}

AVFrame* PictureConverter::convert(const AVFrame& frame, const AVFrame* next) {
  const AVFrame* picture = greys.with_chroma(*whole(frame, next));
  if (picture) picture = conform(*picture);
  if (picture && wanted.turns) picture = make_upright(*picture);
  if (picture && change) picture = recolour(*picture);
  return picture ? show(*picture) : nullptr;
}

const AVFrame* PictureConverter::whole(const AVFrame& frame, const AVFrame* next) {
  if (wanted.all_fields || frame.interlaced_frame) {
    const AVFrame* result = deinterlacer.convert(frame, next);
    if (result) return result;
  }
  deinterlacer.pass(frame);
  return &frame;
}

// A frame that does not say of itself is as the first one.
PictureConverter::Kind PictureConverter::kind_of(const AVFrame& frame) const {
  Colours c = colours_of(frame);
  Kind kind{frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), c.matrix, c.range};
  bool rgb = is_rgb(kind.pixels);
  bool told = kind.matrix != AVCOL_SPC_UNSPECIFIED && kind.matrix != AVCOL_SPC_RGB;
  if (rgb || !told) kind.matrix = common.matrix;
  if (is_palette_like(kind.pixels)) kind.matrix = AVCOL_SPC_SMPTE170M;
  if (rgb || kind.range == AVCOL_RANGE_UNSPECIFIED) kind.range = common.range;
  return kind;
}

// The ranges come first: a scaler that is made for two equal ones only copies.
bool PictureConverter::prepare_scaler(const Kind& from) {
  if (scaler && from == scaled_from) return true;
  scaler.reset(sws_alloc_context());
  if (!scaler) return false;
  const std::pair<const char*, int64_t> settings[] = {
      {"srcw", from.width},
      {"srch", from.height},
      {"src_format", from.pixels},
      {"src_range", from.range == AVCOL_RANGE_JPEG},
      {"dstw", common.width},
      {"dsth", common.height},
      {"dst_format", common.pixels},
      {"dst_range", common.range == AVCOL_RANGE_JPEG},
      {"sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT}};
  for (const auto& [name, value] : settings) av_opt_set_int(scaler.get(), name, value, 0);
  if (sws_init_context(scaler.get(), nullptr, nullptr) < 0) {
    scaler.reset();
    return false;
  }
  sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(from.matrix),
                           from.range == AVCOL_RANGE_JPEG, sws_getCoefficients(common.matrix),
                           common.range == AVCOL_RANGE_JPEG, 0, kNeutral, kNeutral);
  scaled_from = from;
  return true;
}

const AVFrame* PictureConverter::conform(const AVFrame& frame) {
  Kind kind = kind_of(frame);
  if (kind == common) return &frame;
  AVFrame* target = room(conformed, common.width, common.height, common.pixels);
  if (!target || !prepare_scaler(kind)) return nullptr;
  int lines = sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, target->data,
                        target->linesize);
  return lines < 0 ? nullptr : target;
}

const AVFrame* PictureConverter::make_upright(const AVFrame& frame) {
  AVFrame* target = room(upright, output.width, output.height, common.pixels);
  if (target) turn(frame, *target, wanted.turns);
  return target;
}

const AVFrame* PictureConverter::recolour(const AVFrame& frame) {
  AVFrame* target = room(recoloured, output.width, output.height, output.pixels);
  if (target) change->apply(frame, *target);
  return target;
}

// Only the picture: an encoder takes other things that a decoder leaves in a frame for orders.
AVFrame* PictureConverter::show(const AVFrame& frame) {
  av_frame_unref(shown.get());
  shown->width = frame.width;
  shown->height = frame.height;
  shown->format = frame.format;
  shown->colorspace = output.colours.matrix;
  shown->color_range = output.colours.range;
  std::copy(std::begin(frame.data), std::end(frame.data), shown->data);
  std::copy(std::begin(frame.linesize), std::end(frame.linesize), shown->linesize);
  return shown.get();
}

}  // namespace zeva_tool
