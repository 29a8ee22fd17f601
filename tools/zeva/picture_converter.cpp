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
  const ColourPlan plan = plan_colours(first, wanted.limits);
  const bool changes = plan.not_by_matrix;
  ways.clear();
  add_way(first, plan.source, changes ? plan.movie : plan.source);
  const Kind& kind = changes ? ways[0].changed : ways[0].turned;
  output = {kind.width, kind.height, kind.pixels, changes ? plan.movie : plan.source, plan.movie};
  return output;
}

// Of chroma as it is in the frame. The change keeps more than eight bits where there were more.
void PictureConverter::add_way(const AVFrame& frame, const Colours& colours,
                               const Colours& target) {
  const AVPixelFormat decoded =
      GreyPictures::format_with_chroma(static_cast<AVPixelFormat>(frame.format));
  const bool changes = differ_in_light(colours, target);
  AVPixelFormat pixels = is_palette_like(decoded) ? AV_PIX_FMT_BGRA : decoded;
  if (changes) pixels = change_format(pixels);
  const Kind& first = ways.empty() ? Kind{frame.width, frame.height} : ways[0].common;
  Way way;
  way.colours = colours;
  way.common = {first.width, first.height, turned_format(pixels, wanted.turns), colours.matrix,
                colours.range};
  way.turned = way.common;
  if (wanted.turns & 1) std::swap(way.turned.width, way.turned.height);
  way.changed = way.turned;
  if (changes) {
    const int depth = depth_of(way.common.pixels);
    const bool deep =
        ways.empty() ? wanted.limits.ten_bits && depth > 8 : depth_of(output.pixels) > 8;
    const int target_depth = deep ? 10 : 8;
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(way.common.pixels);
    way.changed.pixels = planar_format(false, d.log2_chroma_w, d.log2_chroma_h, target_depth);
    way.changed.matrix = target.matrix;
    way.changed.range = AVCOL_RANGE_MPEG;
    way.change = std::make_unique<ColourChange>(
        ColourChange::Kind{colours, depth}, ColourChange::Kind{target, target_depth},
        colours.is_hdr() ? wanted.peak_nits / kReferenceWhiteNits : 1);
  }
  ways.push_back(std::move(way));
}

// A later picture without a change of light goes the way of the first one if that has none either.
PictureConverter::Way& PictureConverter::way_for(const AVFrame& frame) {
  const Colours colours = later_colours(frame, ways[0].colours);
  for (Way& way : ways) {
    if (!differ_in_light(colours, way.colours)) return way;
  }
  add_way(frame, colours, output.colours);
  return ways.back();
}

AVFrame* PictureConverter::convert(const AVFrame& frame, const AVFrame* next) {
  const AVFrame* picture = greys.with_chroma(*whole(frame, next));
  if (!picture) return nullptr;
  Way& way = way_for(*picture);
  picture = way.conform.convert(*picture, kind_of(*picture, way), way.common);
  if (picture && wanted.turns) picture = make_upright(*picture, way);
  if (picture && way.change) picture = recolour(*picture, way);
  const Kind wanted_kind{output.width, output.height, output.pixels, output.colours.matrix,
                         output.colours.range};
  if (picture) picture = way.finish.convert(*picture, way.changed, wanted_kind);
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
PictureConverter::Kind PictureConverter::kind_of(const AVFrame& frame, const Way& way) const {
  Colours c = colours_of(frame);
  Kind kind{frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), c.matrix, c.range};
  bool rgb = is_rgb(kind.pixels);
  bool told = kind.matrix != AVCOL_SPC_UNSPECIFIED && kind.matrix != AVCOL_SPC_RGB;
  if (rgb || !told) kind.matrix = way.common.matrix;
  if (is_palette_like(kind.pixels)) kind.matrix = AVCOL_SPC_SMPTE170M;
  if (rgb || kind.range == AVCOL_RANGE_UNSPECIFIED) kind.range = way.common.range;
  return kind;
}

// The ranges come first: a scaler that is made for two equal ones only copies.
bool PictureConverter::Scaler::prepare(const Kind& kind, const Kind& wanted) {
  if (sws && kind == from && wanted == to) return true;
  sws.reset(sws_alloc_context());
  if (!sws) return false;
  const std::pair<const char*, int64_t> settings[] = {
      {"srcw", kind.width},
      {"srch", kind.height},
      {"src_format", kind.pixels},
      {"src_range", kind.range == AVCOL_RANGE_JPEG},
      {"dstw", wanted.width},
      {"dsth", wanted.height},
      {"dst_format", wanted.pixels},
      {"dst_range", wanted.range == AVCOL_RANGE_JPEG},
      {"sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT}};
  for (const auto& [name, value] : settings) av_opt_set_int(sws.get(), name, value, 0);
  if (sws_init_context(sws.get(), nullptr, nullptr) < 0) {
    sws.reset();
    return false;
  }
  sws_setColorspaceDetails(sws.get(), sws_getCoefficients(kind.matrix),
                           kind.range == AVCOL_RANGE_JPEG, sws_getCoefficients(wanted.matrix),
                           wanted.range == AVCOL_RANGE_JPEG, 0, kNeutral, kNeutral);
  from = kind;
  to = wanted;
  return true;
}

// The frame itself, where it is of the kind that is wanted.
const AVFrame* PictureConverter::Scaler::convert(const AVFrame& frame, const Kind& kind,
                                                 const Kind& wanted) {
  if (kind == wanted) return &frame;
  AVFrame* target = room(result, wanted.width, wanted.height, wanted.pixels);
  if (!target || !prepare(kind, wanted)) return nullptr;
  int lines = sws_scale(sws.get(), frame.data, frame.linesize, 0, frame.height, target->data,
                        target->linesize);
  return lines < 0 ? nullptr : target;
}

const AVFrame* PictureConverter::make_upright(const AVFrame& frame, Way& way) {
  AVFrame* target = room(way.upright, way.turned.width, way.turned.height, way.turned.pixels);
  if (target) turn(frame, *target, wanted.turns);
  return target;
}

const AVFrame* PictureConverter::recolour(const AVFrame& frame, Way& way) {
  AVFrame* target = room(way.recoloured, way.changed.width, way.changed.height, way.changed.pixels);
  if (target) way.change->apply(frame, *target);
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
