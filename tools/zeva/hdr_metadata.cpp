#include "hdr_metadata.h"

#include <algorithm>
#include <cmath>

#include "colour_math.h"

namespace zeva_tool {
namespace {

constexpr double kUsualPeakNits = 1000;
constexpr double kMaxPeakNits = 10000;
// Units of the messages in the stream (ITU-T H.264, D.2.29).
constexpr int kPlacesOfOne = 50000;
constexpr int kUnitsOfNit = 10000;
constexpr unsigned kMostLight = 65535;  // sixteen bits

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

int64_t in_units(AVRational value, int units) {
  return value.den > 0 ? std::llround(av_q2d(value) * units) : -1;
}

std::string pair_text(int64_t a, int64_t b) {
  return "(" + std::to_string(a) + "," + std::to_string(b) + ")";
}

// The encoder refuses a recording for other numbers than these.
bool is_place(const AVRational (&xy)[2]) {
  return std::all_of(xy, xy + 2, [](AVRational value) {
    int64_t units = in_units(value, kPlacesOfOne);
    return units >= 0 && units <= kPlacesOfOne;
  });
}

bool is_display(const AVMasteringDisplayMetadata& d) {
  if (!d.has_primaries || !d.has_luminance) return false;
  int64_t least = in_units(d.min_luminance, kUnitsOfNit);
  int64_t most = in_units(d.max_luminance, kUnitsOfNit);
  return is_place(d.white_point) &&
         std::all_of(d.display_primaries, d.display_primaries + 3, is_place) && least >= 0 &&
         least < most && most <= static_cast<int64_t>(kMaxPeakNits) * kUnitsOfNit;
}

}  // namespace

HdrMetadata::HdrMetadata(const AVStream& stream, const AVFrame* picture) {
  take(display, stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, picture,
       AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
  take(light, stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, picture, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
}

double HdrMetadata::peak_nits() const {
  double peak = kUsualPeakNits;
  if (display.has_luminance && in_units(display.max_luminance, 1) > 0) {
    peak = av_q2d(display.max_luminance);
  }
  if (light.MaxCLL > 0) peak = light.MaxCLL;
  return std::clamp(peak, kReferenceWhiteNits, kMaxPeakNits);
}

std::string HdrMetadata::encoder_options() const {
  auto place = [](const AVRational(&xy)[2]) {
    return pair_text(in_units(xy[0], kPlacesOfOne), in_units(xy[1], kPlacesOfOne));
  };
  std::string text;
  if (is_display(display)) {
    const auto& [red, green, blue] = display.display_primaries;
    text = "mastering-display=G" + place(green) + "B" + place(blue) + "R" + place(red) + "WP" +
           place(display.white_point) + "L" +
           pair_text(in_units(display.max_luminance, kUnitsOfNit),
                     in_units(display.min_luminance, kUnitsOfNit));
  }
  bool told = light.MaxCLL > 0 || light.MaxFALL > 0;
  if (told && light.MaxCLL <= kMostLight && light.MaxFALL <= kMostLight) {
    if (!text.empty()) text += ":";
    text += "cll=" + std::to_string(light.MaxCLL) + "," + std::to_string(light.MaxFALL);
  }
  return text;
}

}  // namespace zeva_tool
