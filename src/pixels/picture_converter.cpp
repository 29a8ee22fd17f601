#include "picture_converter.h"

#include <algorithm>

#include "av_error.h"
#include "colour_matrix.h"
#include "logger.h"
#include "plane_scaler.h"
#include "recolour.h"
#include "repack.h"
#include "rgb_to_yuv.h"
#include "sws_step.h"

namespace zeva {
namespace {

bool have_one_size(const PictureFormat& a, const PictureFormat& b) {
  return a.width == b.width && a.height == b.height;
}

bool have_one_colour(const PictureFormat& a, const PictureFormat& b) {
  return a.matrix == b.matrix && a.range == b.range;
}

bool have_weights(const PictureFormat& a, const PictureFormat& b) {
  LumaWeights weights;
  return find_luma_weights(a.matrix, &weights) && find_luma_weights(b.matrix, &weights);
}

// The pixel format of eight bits in which pictures are scaled and recoloured on the way to this
// one, or none.
AVPixelFormat planar_before(AVPixelFormat pixels) {
  if (is_planar_420(pixels) || pixels == AV_PIX_FMT_NV12) return AV_PIX_FMT_YUV420P;
  return is_planar_422(pixels) ? AV_PIX_FMT_YUV422P : AV_PIX_FMT_NONE;
}

}  // namespace

bool PictureConverter::configure(const PictureFormat& source, const PictureFormat& target,
                                 CpuLevel level) {
  from = source;
  to = target;
  stages.clear();
  if (from.has_area() && to.has_area() && plan(level) && make_results()) return true;
  ZEVA_LOG(kLogError, "no conversion from %dx%d in format %d to %dx%d in format %d", from.width,
           from.height, from.pixels, to.width, to.height, to.pixels);
  return false;
}

void PictureConverter::convert(const AVFrame& in, AVFrame& out) {
  const AVFrame* picture = &in;
  for (const Stage& stage : stages) {
    AVFrame& result = stage.result ? *stage.result : out;
    stage.step->run(*picture, result);
    picture = &result;
  }
}

bool PictureConverter::goes_row_by_row() const {
  return std::all_of(stages.begin(), stages.end(),
                     [](const Stage& stage) { return stage.step->goes_row_by_row(); });
}

// ---- the way from one format to the other

bool PictureConverter::plan(CpuLevel level) {
  if (have_one_size(from, to) && RgbToYuv::supports(from, to)) {
    append<RgbToYuv>(to, level);
    return true;
  }
  if (have_one_size(from, to) && have_one_colour(from, to) &&
      Repack::supports(from.pixels, to.pixels)) {
    append<Repack>(to, level);
    return true;
  }
  return plan_by_planar(level) || plan_by_swscale(level);
}

bool PictureConverter::plan_by_planar(CpuLevel level) {
  PictureFormat planar = to;
  planar.pixels = planar_before(to.pixels);
  if (planar.pixels == AV_PIX_FMT_NONE) return false;
  if (!from.is_rgb()) {
    planar.matrix = from.matrix;
    planar.range = from.range;
  }
  if (!have_one_colour(planar, to) && !have_weights(planar, to)) return false;
  if (!have_one_size(from, to)) {
    if (!PlaneScaler::supports(from, planar)) return false;
    append<PlaneScaler>(planar, level);
  } else if (!Repack::supports(from.pixels, planar.pixels)) {
    return false;
  } else if (from.pixels == AV_PIX_FMT_NV12) {
    append<BorrowedLuma>(planar, level);
  } else if (planar_before(from.pixels) != planar.pixels) {
    append<Repack>(planar, level);
  }
  append_rest(level);
  return true;
}

// swscale is right between two kinds of YUV where matrix and range stay: then Recolour changes
// them, or RGB of sixteen bits lies between.
bool PictureConverter::plan_by_swscale(CpuLevel level) {
  if (from.is_rgb() || to.is_rgb() || have_one_colour(from, to) || !have_weights(from, to)) {
    return append_swscale(to);
  }
  PictureFormat between = to;
  between.pixels = planar_before(to.pixels);
  if (between.pixels == AV_PIX_FMT_NONE) {
    between.pixels = AV_PIX_FMT_RGB48;
    return append_swscale(settle(between)) && append_swscale(to);
  }
  between.matrix = from.matrix;
  between.range = from.range;
  if (!append_swscale(between)) return false;
  append_rest(level);
  return true;
}

// From a planar picture of the target's size on.
void PictureConverter::append_rest(CpuLevel level) {
  PictureFormat recoloured = to;
  recoloured.pixels = planar_before(to.pixels);
  if (!have_one_colour(reached(), to)) append<Recolour>(recoloured, level);
  if (to.pixels == AV_PIX_FMT_NV12) append<Repack>(to, level);
}

template <typename Step>
void PictureConverter::append(const PictureFormat& format, CpuLevel level) {
  auto step = std::make_unique<Step>(reached(), format, level);
  stages.push_back({std::move(step), format, nullptr});
}

bool PictureConverter::append_swscale(const PictureFormat& format) {
  auto step = SwsStep::make(reached(), format);
  if (!step) return false;
  stages.push_back({std::move(step), format, nullptr});
  return true;
}

bool PictureConverter::make_results() {
  for (size_t i = 0; i + 1 < stages.size(); ++i) {
    FramePtr picture(av_frame_alloc());
    if (!picture) return false;
    picture->width = stages[i].format.width;
    picture->height = stages[i].format.height;
    picture->format = stages[i].format.pixels;
    if (av_frame_get_buffer(picture.get(), 0) < 0) return false;
    stages[i].result = std::move(picture);
  }
  return true;
}

}  // namespace zeva
