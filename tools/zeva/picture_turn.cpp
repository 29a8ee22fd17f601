#include "picture_turn.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "pixel_formats.h"

namespace zeva_tool {
namespace {

template <typename Sample>
struct Plane {
  const AVFrame& frame;
  int index;
  int width;
  int height;

  Sample* line(int y) const {
    return reinterpret_cast<Sample*>(frame.data[index] + ptrdiff_t{y} * frame.linesize[index]);
  }
};

template <typename Sample>
void turn_half(const Plane<Sample>& source, const Plane<Sample>& target) {
  for (int y = 0; y < target.height; ++y) {
    const Sample* line = source.line(target.height - 1 - y);
    std::reverse_copy(line, line + target.width, target.line(y));
  }
}

// A decoded line becomes a column: from the right for a turn clockwise, else from the left.
template <typename Sample>
void turn_quarter(const Plane<Sample>& source, const Plane<Sample>& target, bool clockwise) {
  for (int x = 0; x < target.width; ++x) {
    const Sample* line = source.line(clockwise ? target.width - 1 - x : x);
    for (int y = 0; y < target.height; ++y) {
      target.line(y)[x] = line[clockwise ? y : target.height - 1 - y];
    }
  }
}

template <typename Sample>
void turn_planes(const AVFrame& from, AVFrame& to, int quarters) {
  const auto format = static_cast<AVPixelFormat>(to.format);
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(format);
  for (int i = 0; i < av_pix_fmt_count_planes(format); ++i) {
    bool chroma = i == 1 || i == 2;
    int width = AV_CEIL_RSHIFT(to.width, chroma ? d.log2_chroma_w : 0);
    int height = AV_CEIL_RSHIFT(to.height, chroma ? d.log2_chroma_h : 0);
    Plane<Sample> source{from, i, width, height};
    Plane<Sample> target{to, i, width, height};
    if (quarters == 2) turn_half(source, target);
    if (quarters != 2) turn_quarter(source, target, quarters == 1);
  }
}

}  // namespace

int turns_of(const AVStream& stream) {
  int size = 0;
  const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!matrix || size < 9 * static_cast<int>(sizeof(int32_t))) return 0;
  // The matrix tells the rotation counter-clockwise; NaN for a matrix that is none.
  double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  return std::isfinite(degrees) ? static_cast<int>(std::lround(degrees / 90)) & 3 : 0;
}

bool can_turn(AVPixelFormat format, int quarters) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return has_sample_planes(format) && (quarters == 2 || d->log2_chroma_w == d->log2_chroma_h);
}

void turn(const AVFrame& from, AVFrame& to, int quarters) {
  if (depth_of(static_cast<AVPixelFormat>(to.format)) > 8) {
    turn_planes<uint16_t>(from, to, quarters);
  } else {
    turn_planes<uint8_t>(from, to, quarters);
  }
}

}  // namespace zeva_tool
