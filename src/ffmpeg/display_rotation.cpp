#include "display_rotation.h"

#include <cmath>

extern "C" {
#include <libavutil/display.h>
}

namespace zeva {
namespace {

constexpr int kMatrixBytes = 9 * sizeof(int32_t);

}  // namespace

// FFmpeg reads a matrix counter-clockwise, with NaN for one that is no rotation, and writes one
// clockwise.
int display_rotation(const AVStream& stream) {
  int size = 0;
  const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (matrix == nullptr || size < kMatrixBytes) return 0;
  const double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  return std::isfinite(degrees) ? (static_cast<int>(std::lround(degrees / 90)) & 3) * 90 : 0;
}

int set_display_rotation(AVStream* stream, int degrees) {
  if (degrees % 90 != 0 || degrees < 90 || degrees > 270) return 0;
  uint8_t* matrix = av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, kMatrixBytes);
  if (matrix == nullptr) return AVERROR(ENOMEM);
  av_display_rotation_set(reinterpret_cast<int32_t*>(matrix), degrees);
  return 0;
}

}  // namespace zeva
