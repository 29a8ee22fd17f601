#include "picture_converter.h"

#include <cmath>

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

}  // namespace

int PictureConverter::turns_of(const AVStream& stream) {
  int size = 0;
  const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!matrix || size < 9 * static_cast<int>(sizeof(int32_t))) return 0;
  // The matrix tells the rotation counter-clockwise; NaN for a matrix that is none.
  double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  return std::isfinite(degrees) ? static_cast<int>(std::lround(degrees / 90)) & 3 : 0;
}

void PictureConverter::configure(int width, int height, int quarter_turns) {
  upright_width = width;
  upright_height = height;
  turns = quarter_turns;
  upright.resize(static_cast<size_t>(width) * height);
  if (turns) scaled.resize(upright.size());
}

bool PictureConverter::prepare(const AVFrame& frame) {
  bool sideways = (turns & 1) != 0;
  int width = sideways ? upright_height : upright_width;
  int height = sideways ? upright_width : upright_height;
  int range = frame.color_range == AVCOL_RANGE_JPEG;
  bool same = scaler && frame.width == source_width && frame.height == source_height &&
              frame.format == source_format && range == source_range;
  if (same) return true;
  scaler.reset(sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                              width, height, AV_PIX_FMT_BGRA, SWS_BICUBIC, nullptr, nullptr,
                              nullptr));
  if (!scaler) return false;
  source_width = frame.width;
  source_height = frame.height;
  source_format = frame.format;
  source_range = range;
  if (range) take_full_range(scaler.get());
  return true;
}

bool PictureConverter::convert(const AVFrame& frame) {
  if (!prepare(frame)) return false;
  std::vector<uint32_t>& target = turns ? scaled : upright;
  uint8_t* planes[4] = {reinterpret_cast<uint8_t*>(target.data())};
  int strides[4] = {((turns & 1) ? upright_height : upright_width) * 4};
  if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) < 0) {
    return false;
  }
  if (turns) turn();
  return true;
}

void PictureConverter::turn() {
  size_t count = upright.size();
  if (turns == 2) {
    for (size_t i = 0; i < count; ++i) upright[count - 1 - i] = scaled[i];
    return;
  }
  // A decoded line becomes a column: from the right for a turn clockwise, else from the left.
  for (int x = 0; x < upright_width; ++x) {
    const uint32_t* line =
        scaled.data() +
        static_cast<size_t>(turns == 1 ? upright_width - 1 - x : x) * upright_height;
    for (int y = 0; y < upright_height; ++y) {
      upright[static_cast<size_t>(y) * upright_width + x] =
          line[turns == 1 ? y : upright_height - 1 - y];
    }
  }
}

}  // namespace zeva_tool
