#include "picture_converter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace zeva_tool {
namespace {

void take_full_range(SwsContext* scaler) {
  int* inverse = nullptr;
  int* table = nullptr;
  int source_range = 0;
  int target_range = 0;
  int brightness = 0;
  int contrast = 0;
  int saturation = 0;
  int known = sws_getColorspaceDetails(scaler, &inverse, &source_range, &table, &target_range,
                                       &brightness, &contrast, &saturation);
  if (known < 0) return;
  sws_setColorspaceDetails(scaler, inverse, 1, table, target_range, brightness, contrast,
                           saturation);
}

// Pixels of either format are one number.
template <typename Pixel>
struct Pixels {
  explicit Pixels(const AVFrame& frame)
      : data(reinterpret_cast<Pixel*>(frame.data[0])),
        per_line(frame.linesize[0] / static_cast<int>(sizeof(Pixel))) {}
  Pixel* line(int y) const { return data + std::ptrdiff_t{y} * per_line; }

  Pixel* data;
  int per_line;
};

template <typename Pixel>
void turn_half(const AVFrame& from, AVFrame& to) {
  Pixels<Pixel> source(from);
  Pixels<Pixel> target(to);
  for (int y = 0; y < to.height; ++y) {
    const Pixel* line = source.line(to.height - 1 - y);
    std::reverse_copy(line, line + to.width, target.line(y));
  }
}

// A decoded line becomes a column: from the right for a turn clockwise, else from the left.
template <typename Pixel>
void turn_quarter(const AVFrame& from, AVFrame& to, bool clockwise) {
  Pixels<Pixel> source(from);
  Pixels<Pixel> target(to);
  for (int x = 0; x < to.width; ++x) {
    const Pixel* line = source.line(clockwise ? to.width - 1 - x : x);
    for (int y = 0; y < to.height; ++y) {
      target.line(y)[x] = line[clockwise ? y : to.height - 1 - y];
    }
  }
}

template <typename Pixel>
void turn(const AVFrame& from, AVFrame& to, int quarters) {
  if (quarters == 2) {
    turn_half<Pixel>(from, to);
  } else {
    turn_quarter<Pixel>(from, to, quarters == 1);
  }
}

}  // namespace

int PictureConverter::turns_of(const AVStream& stream) {
  int size = 0;
  const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!matrix || size < 9 * static_cast<int>(sizeof(int32_t))) return 0;
  // The matrix tells the rotation counter-clockwise; NaN for a matrix that is none.
  double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  return std::isfinite(degrees) ? static_cast<int>(std::lround(degrees / 90)) & 3 : 0;
}

void PictureConverter::configure(int width, int height, AVPixelFormat pixels, int quarter_turns) {
  upright_width = width;
  upright_height = height;
  format = pixels;
  turns = quarter_turns;
}

bool PictureConverter::make_frame(FramePtr& frame, int width, int height) {
  if (frame) return true;
  FramePtr made(av_frame_alloc());
  made->width = width;
  made->height = height;
  made->format = format;
  if (av_frame_get_buffer(made.get(), 0) < 0) return false;
  frame = std::move(made);
  return true;
}

bool PictureConverter::prepare(const AVFrame& frame) {
  bool sideways = (turns & 1) != 0;
  int width = sideways ? upright_height : upright_width;
  int height = sideways ? upright_width : upright_height;
  if (!make_frame(upright, upright_width, upright_height)) return false;
  if (turns && !make_frame(scaled, width, height)) return false;
  int range = frame.color_range == AVCOL_RANGE_JPEG;
  bool same = scaler && frame.width == source_width && frame.height == source_height &&
              frame.format == source_format && range == source_range;
  if (same) return true;
  scaler.reset(sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                              width, height, format, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!scaler) return false;
  source_width = frame.width;
  source_height = frame.height;
  source_format = frame.format;
  source_range = range;
  if (range) take_full_range(scaler.get());
  return true;
}

AVFrame* PictureConverter::convert(const AVFrame& frame) {
  if (!prepare(frame)) return nullptr;
  AVFrame& target = turns ? *scaled : *upright;
  if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, target.data,
                target.linesize) < 0) {
    return nullptr;
  }
  if (turns && format == AV_PIX_FMT_BGRA) turn<uint32_t>(*scaled, *upright, turns);
  if (turns && format != AV_PIX_FMT_BGRA) turn<uint64_t>(*scaled, *upright, turns);
  return upright.get();
}

}  // namespace zeva_tool
