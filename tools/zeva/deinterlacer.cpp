// A line of the lower field lies between two lines of the upper one, which show another moment. A
// sample of it becomes the mean of its neighbours above and below, but moves towards it no further
// than it or one of the neighbours changed since the picture before. So still parts keep every
// line, moving ones show the upper field's moment only, and between the two there is no threshold
// that noise could cross. Which field is the earlier one makes no difference. All planes are
// treated alike, since the fields of subsampled chroma lie in alternate lines, too.
#include "deinterlacer.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "pixel_formats.h"

namespace zeva_tool {
namespace {

template <typename Sample>
struct Neighbours {
  const Sample* above;
  const Sample* here;
  const Sample* below;
};

template <typename Sample>
void make_line(const Neighbours<Sample>& now, const Neighbours<Sample>& before, Sample* out,
               int count) {
  for (int i = 0; i < count; ++i) {
    int above = now.above[i];
    int here = now.here[i];
    int below = now.below[i];
    int change = std::max(std::abs(here - before.here[i]), std::abs(above - before.above[i]));
    change = std::max(change, std::abs(below - before.below[i]));
    int between = (above + below + 1) / 2;
    out[i] = static_cast<Sample>(std::clamp(between, here - change, here + change));
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
void make_plane(const AVFrame& now, const AVFrame& before, AVFrame& out, const Plane& plane) {
  int count = plane.bytes / static_cast<int>(sizeof(Sample));
  for (int y = 1; y < plane.height; y += 2) {
    uint8_t* line = out.data[plane.index] + ptrdiff_t{y} * out.linesize[plane.index];
    make_line(around<Sample>(now, plane, y), around<Sample>(before, plane, y),
              reinterpret_cast<Sample*>(line), count);
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
  for (int i = 0; i < av_pix_fmt_count_planes(format); ++i) {
    bool chroma = i == 1 || i == 2;
    Plane plane{i, AV_CEIL_RSHIFT(frame.height, chroma ? d.log2_chroma_h : 0),
                av_image_get_linesize(format, frame.width, i)};
    if (wide) make_plane<uint16_t>(frame, *other, *result, plane);
    if (!wide) make_plane<uint8_t>(frame, *other, *result, plane);
  }
  pass(frame);
  return result.get();
}

void Deinterlacer::pass(const AVFrame& frame) {
  av_frame_unref(before.get());
  av_frame_ref(before.get(), &frame);
}

}  // namespace zeva_tool
