#include "hdr_metadata.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "colour_math.h"

namespace zeva_tool {
namespace {

constexpr double kUsualPeakNits = 1000;
constexpr double kMaxPeakNits = 10000;
// Units of the messages in the stream (ITU-T H.264, D.2.29).
constexpr int kPlacesOfOne = 50000;
constexpr int kUnitsOfNit = 10000;

template <typename Metadata>
void take(Metadata& into, const AVStream& stream, AVPacketSideDataType of_stream,
          const AVFrame* picture, AVFrameSideDataType of_frame) {
  int size = 0;
  const uint8_t* data = av_stream_get_side_data(&stream, of_stream, &size);
  if (!data && picture) {
    const AVFrameSideData* found = av_frame_get_side_data(picture, of_frame);
    if (found) data = found->data;
    if (found) size = static_cast<int>(found->size);
  }
  if (data && size >= static_cast<int>(sizeof into)) {
    into = *reinterpret_cast<const Metadata*>(data);
  }
}

int in_units(AVRational value, int units) {
  return value.den > 0 ? static_cast<int>(std::lround(av_q2d(value) * units)) : 0;
}

}  // namespace

HdrMetadata::HdrMetadata(const AVStream& stream, const AVFrame* picture) {
  take(display, stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, picture,
       AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
  take(light, stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, picture, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
}

double HdrMetadata::peak_nits() const {
  double peak = kUsualPeakNits;
  if (display.has_luminance && av_q2d(display.max_luminance) > 0) {
    peak = av_q2d(display.max_luminance);
  }
  if (light.MaxCLL > 0) peak = light.MaxCLL;
  return std::clamp(peak, kReferenceWhiteNits, kMaxPeakNits);
}

std::string HdrMetadata::encoder_options() const {
  std::string text;
  char part[160];
  if (has_display()) {
    auto place = [&](const AVRational(&xy)[2], int i) { return in_units(xy[i], kPlacesOfOne); };
    const auto& p = display.display_primaries;
    snprintf(part, sizeof part, "mastering-display=G(%d,%d)B(%d,%d)R(%d,%d)WP(%d,%d)L(%d,%d)",
             place(p[1], 0), place(p[1], 1), place(p[2], 0), place(p[2], 1), place(p[0], 0),
             place(p[0], 1), place(display.white_point, 0), place(display.white_point, 1),
             in_units(display.max_luminance, kUnitsOfNit),
             in_units(display.min_luminance, kUnitsOfNit));
    text = part;
  }
  if (has_light()) {
    snprintf(part, sizeof part, "%scll=%u,%u", text.empty() ? "" : ":", light.MaxCLL,
             light.MaxFALL);
    text += part;
  }
  return text;
}

}  // namespace zeva_tool
