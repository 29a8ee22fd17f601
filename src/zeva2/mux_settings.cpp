#include "mux_settings.h"

#include <cstring>

#include "logger.h"

namespace zeva {
namespace {

// Not more than a byte of an array that the host forgot to terminate.
template <size_t kSize>
std::string array_text(const char (&text)[kSize]) {
  return std::string(text, strnlen(text, kSize - 1));
}

std::string pointer_text(const char* text) { return text != nullptr ? text : ""; }

// Lengths that cannot be are kept for the refusal, but not followed.
std::vector<uint8_t> copy_set(const uint8_t** data, int32_t length) {
  std::vector<uint8_t> copy;
  if (*data != nullptr && length > 0 && length <= h264::kMaxParameterSetBytes) {
    copy.assign(*data, *data + length);
  }
  *data = copy.empty() ? nullptr : copy.data();
  return copy;
}

}  // namespace

MuxSettings::MuxSettings(const MovieInfo2& info)
    : url(array_text(info.url)),
      moov(array_text(info.moov)),
      meta(array_text(info.meta)),
      audio{info.sample_rate, info.channels, pointer_text(info.sample_format), info.bitrate},
      sets{info.pps, info.sps, info.pps_len, info.sps_len, info.extradata, info.extradata_len},
      vcodec(info.vcodec),
      acodec(info.acodec),
      pps(copy_set(&sets.pps, sets.pps_len)),
      sps(copy_set(&sets.sps, sets.sps_len)),
      extradata(copy_set(&sets.extradata, sets.extradata_len)) {
  for (size_t i = 0; i < others.size(); ++i) others[i] = pointer_text(info.others[i]);
}

void MuxSettings::log() const {
  ZEVA_LOG(kLogDebug, "------[movie_info]------------");
  ZEVA_LOG(kLogDebug, "url: %s", url.c_str());
  ZEVA_LOG(kLogDebug, "moov: %s", moov.c_str());
  for (size_t i = 0; i < others.size(); ++i) {
    if (!others[i].empty()) {
      ZEVA_LOG(kLogDebug, "others[%d]: %s", static_cast<int>(i), others[i].c_str());
    }
  }
  ZEVA_LOG(kLogDebug, "external acodec: %s", has_audio() ? "aac" : "(null)");
  ZEVA_LOG(kLogDebug, "external vcodec: %s", has_video() ? "h264" : "(null)");
}

}  // namespace zeva
