#include "settings_check.h"

#include <cstring>

#include "ffmpeg.h"

namespace zeva {
namespace {

// Bit rates are counted in bits in 32-bit fields of the encoders.
constexpr int kMaxBitrateKbit = 2000000;
constexpr int kMaxChannels = 8;

template <size_t kSize>
bool terminated(const char (&text)[kSize]) {
  return memchr(text, '\0', kSize) != nullptr;
}

bool in_range(int value, int low, int high) { return value >= low && value <= high; }

std::string number_fault(const char* field, int value) {
  return std::string(field) + " " + std::to_string(value) + " is out of range";
}

std::string pixel_format_fault(int format) {
  if (av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format)) != nullptr) return {};
  return "pixel format " + std::to_string(format) + " is unknown";
}

std::string outputs_fault(const MovieInfo& info) {
  if (!terminated(info.url)) return "url is longer than 511 bytes";
  if (!terminated(info.moov_url)) return "moov_url is longer than 511 bytes";
  if (!terminated(info.meta_info)) return "meta_info is longer than 255 bytes";
  if (info.other_urls[3] != nullptr) return "other_urls holds more than 3 outputs";
  return {};
}

std::string video_fault(const MovieInfo& info) {
  const struct {
    const char* field;
    int value, low, high;
  } ranges[] = {
      {"fps", info.fps, 1, 1000},
      {"width", info.width, 1, 32768},
      {"height", info.height, 1, 32768},
      {"src_width", info.src_width, 0, 32768},
      {"src_height", info.src_height, 0, 32768},
      {"gop_size", info.gop_size, 0, INT32_MAX},
      {"video_bitrate", info.video_bitrate, 0, kMaxBitrateKbit},
  };
  for (const auto& r : ranges) {
    if (!in_range(r.value, r.low, r.high)) return number_fault(r.field, r.value);
  }
  // The encoder's first format stands for none.
  std::string fault = info.pix_fmt == AV_PIX_FMT_NONE ? "" : pixel_format_fault(info.pix_fmt);
  return fault.empty() ? pixel_format_fault(info.src_pix_fmt) : fault;
}

std::string audio_fault(const MovieInfo& info) {
  const struct {
    const char* field;
    int value, low, high;
  } ranges[] = {
      {"channels", info.channels, 0, kMaxChannels},
      {"src_sample_rate", info.src_sample_rate, 0, 768000},
      {"sample_rate", info.sample_rate, 0, 768000},
      {"audio_bitrate", info.audio_bitrate, 0, kMaxBitrateKbit},
  };
  for (const auto& r : ranges) {
    if (!in_range(r.value, r.low, r.high)) return number_fault(r.field, r.value);
  }
  if (av_get_bytes_per_sample(static_cast<AVSampleFormat>(info.sample_fmt)) <= 0) {
    return "sample format " + std::to_string(info.sample_fmt) + " is unknown";
  }
  return {};
}

}  // namespace

std::string settings_fault(const MovieInfo& info) {
  std::string fault = outputs_fault(info);
  if (fault.empty() && !info.disable_video) fault = video_fault(info);
  if (fault.empty() && !info.disable_audio) fault = audio_fault(info);
  // The names of the levels are looked up in tables.
  if (fault.empty() && !in_range(info.preset, 0, kQualityNone)) {
    fault = number_fault("preset", info.preset);
  }
  if (fault.empty() && !in_range(info.profile, 0, kProfileNone)) {
    fault = number_fault("profile", info.profile);
  }
  if (fault.empty() && !in_range(info.tune, 0, kTuneNone)) fault = number_fault("tune", info.tune);
  return fault;
}

}  // namespace zeva
