// A line of the lower field lies between two lines of the upper one, which show another moment. A
// sample of it that differs from the picture before, or whose neighbours above and below do, is in
// motion. It then may not stick out of its two neighbours: that is the comb. So still parts keep
// every line, and so do moving ones where both fields agree, as in films that were only stored as
// fields. Whichever field is the earlier one makes no difference. All planes are treated alike,
// since fields of subsampled chroma lie in alternate lines, too.
#include "deinterlacer.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "pixel_formats.h"

namespace zeva_tool {
namespace {

constexpr int kNoise = 8;  // of 255: a smaller change is none

template <typename Sample>
struct Neighbours {
  const Sample* above;
  const Sample* here;
  const Sample* below;
};

template <typename Sample>
void make_line(const Neighbours<Sample>& now, const Neighbours<Sample>& before, Sample* out,
               int count, int noise) {
  for (int i = 0; i < count; ++i) {
    int above = now.above[i];
    int here = now.here[i];
    int below = now.below[i];
    int change = std::max(std::abs(here - before.here[i]), std::abs(above - before.above[i]));
    change = std::max(change, std::abs(below - before.below[i]));
    int bound = std::clamp(here, std::min(above, below), std::max(above, below));
    out[i] = static_cast<Sample>(change > noise ? bound : here);
  }
}

struct Plane {
  int index;
  int height;
  int bytes;  // a line
};

template <typename Sample>
Neighbours<Sample> around(const AVFrame& frame, const Plane& plane, int y) {
  auto line = [&](int at) {
    return reinterpret_cast<const Sample*>(frame.data[plane.index] +
                                           ptrdiff_t{at} * frame.linesize[plane.index]);
  };
  return {line(y - 1), line(y), line(y + 1 < plane.height ? y + 1 : y - 1)};
}

template <typename Sample>
void make_plane(const AVFrame& now, const AVFrame& before, AVFrame& out, const Plane& plane,
                int noise) {
  int count = plane.bytes / static_cast<int>(sizeof(Sample));
  for (int y = 1; y < plane.height; y += 2) {
    uint8_t* line = out.data[plane.index] + ptrdiff_t{y} * out.linesize[plane.index];
    make_line(around<Sample>(now, plane, y), around<Sample>(before, plane, y),
              reinterpret_cast<Sample*>(line), count, noise);
  }
}

bool alike(const AVFrame& a, const AVFrame& b) {
  return a.data[0] && a.width == b.width && a.height == b.height && a.format == b.format;
}

}  // namespace

bool Deinterlacer::make_room(const AVFrame& frame) {
  if (result && alike(*result, frame)) return av_frame_make_writable(result.get()) >= 0;
  result.reset(av_frame_alloc());
  result->width = frame.width;
  result->height = frame.height;
  result->format = frame.format;
  if (av_frame_get_buffer(result.get(), 0) >= 0) return true;
  result.reset();
  return false;
}

const AVFrame* Deinterlacer::convert(const AVFrame& frame, const AVFrame* next) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  const AVFrame* other = alike(*before, frame) ? before.get() : next;
  if (!other || !alike(*other, frame)) other = &frame;
  if (!has_whole_samples(format) || !make_room(frame)) return nullptr;
  if (av_frame_copy(result.get(), &frame) < 0) return nullptr;
  av_frame_copy_props(result.get(), &frame);
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(format);
  bool wide = d.comp[0].depth > 8;
  int noise = kNoise << (wide ? d.comp[0].depth + d.comp[0].shift - 8 : 0);
  for (int i = 0; i < av_pix_fmt_count_planes(format); ++i) {
    bool chroma = i == 1 || i == 2;
    Plane plane{i, AV_CEIL_RSHIFT(frame.height, chroma ? d.log2_chroma_h : 0),
                av_image_get_linesize(format, frame.width, i)};
    if (wide) make_plane<uint16_t>(frame, *other, *result, plane, noise);
    if (!wide) make_plane<uint8_t>(frame, *other, *result, plane, noise);
  }
  pass(frame);
  return result.get();
}

void Deinterlacer::pass(const AVFrame& frame) {
  av_frame_unref(before.get());
  av_frame_ref(before.get(), &frame);
}

}  // namespace zeva_tool
