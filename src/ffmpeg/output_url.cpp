#include "output_url.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zeva {

const LiveStream* live_stream(const char* url) {
  static constexpr std::array<LiveStream, 4> kAll{{
      {"rtmp", "flv", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
      {"rtmps", "flv", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
      {"rtsp", "rtsp", AV_CODEC_ID_H264, AV_CODEC_ID_OPUS},
      {"srt", "mpegts", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
  }};
  const auto* const found = std::find_if(kAll.begin(), kAll.end(), [url](const LiveStream& stream) {
    const char* rest = nullptr;
    return av_stristart(url, stream.scheme, &rest) != 0 && av_strstart(rest, "://", nullptr) != 0;
  });
  return found != kAll.end() ? found : nullptr;
}

bool is_live_url(const char* url) { return live_stream(url) != nullptr; }

bool is_rtsp_url(const char* url) {
  const LiveStream* const live = live_stream(url);
  return live != nullptr && strcmp(live->scheme, "rtsp") == 0;
}

bool is_network_url(const char* url) {
  return strstr(url, "://") != nullptr && av_strstart(url, "file://", nullptr) == 0;
}

std::string file_path(const std::string& url) {
  const char* path = url.c_str();
  const char* protocol = avio_find_protocol_name(path);
  if (protocol == nullptr || strcmp(protocol, "file") != 0) return {};
  av_strstart(path, "file:", &path);
  return path;
}

bool ends_with_nocase(const char* text, const char* suffix) {
  const size_t length = strlen(text);
  const size_t suffix_length = strlen(suffix);
  return length >= suffix_length && av_strcasecmp(text + length - suffix_length, suffix) == 0;
}

AVOutputFormat* guess_output_format(const char* url) {
  const LiveStream* const live = live_stream(url);
  AVOutputFormat* const format = live != nullptr ? av_guess_format(live->muxer, nullptr, nullptr)
                                                 : av_guess_format(nullptr, url, nullptr);
  return format != nullptr ? format : av_guess_format("mp4", url, nullptr);
}

std::vector<std::pair<std::string, std::string>> parse_metadata(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (size_t begin = 0; begin < text.size();) {
    size_t end = text.find(';', begin);
    if (end == std::string::npos) end = text.size();
    const std::string piece = text.substr(begin, end - begin);
    const size_t colon = piece.find(':');
    if (colon != std::string::npos) {
      pairs.emplace_back(piece.substr(0, colon), piece.substr(colon + 1));
    }
    begin = end + 1;
  }
  return pairs;
}

}  // namespace zeva
