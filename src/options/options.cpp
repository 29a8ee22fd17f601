#include "options.h"

#include <algorithm>

namespace zeva {
namespace {

constexpr int32_t kMaxRate = 1000;  // pictures a second
constexpr int32_t kMaxChannels = 8;

std::string text_of(const char* text) { return text != nullptr ? text : ""; }

// The host's record, with 0 for what it is too short to hold.
ZevaOptions complete(const ZevaOptions* given) {
  ZevaOptions options;
  ZevaOptions_init(&options);
  if (given == nullptr) return options;
  const size_t known = std::min<size_t>(given->struct_size, sizeof options);
  memcpy(&options, given, known);
  return options;
}

}  // namespace

Options::Options(const ZevaOptions* given) {
  const ZevaOptions all = complete(given);
  rate_num = all.rate_num;
  rate_den = all.rate_den;
  variable_rate = all.variable_rate != 0;
  channels = all.channels;
  rotation_deg = all.rotation_deg;
  common_start = all.common_start != 0;
  video_codec = text_of(all.video_codec);
  audio_codec = text_of(all.audio_codec);
  encoder_options = text_of(all.encoder_options);
}

std::string Options::fault() const {
  const bool rate_given = rate_den != 0;
  const bool rate_valid = rate_num >= 1 && rate_den >= 1 && rate_num / rate_den <= kMaxRate;
  if (rate_given && !rate_valid) {
    return "rate " + std::to_string(rate_num) + "/" + std::to_string(rate_den) + " is out of range";
  }
  if (channels < 0 || channels > kMaxChannels) {
    return "channels " + std::to_string(channels) + " is out of range";
  }
  if (rotation_deg % 90 != 0 || rotation_deg < 0 || rotation_deg > 270) {
    return "rotation_deg " + std::to_string(rotation_deg) + " is not 0, 90, 180 or 270";
  }
  return {};
}

}  // namespace zeva
