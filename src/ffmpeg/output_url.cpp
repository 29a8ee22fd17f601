#include "output_url.h"

#include <cstring>

namespace zeva {

bool is_rtmp_url(const char* url) { return av_strstart(url, "rtmp://", nullptr) != 0; }

bool is_rtsp_url(const char* url) { return av_strstart(url, "rtsp://", nullptr) != 0; }

bool is_live_url(const char* url) { return is_rtmp_url(url) || is_rtsp_url(url); }

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
  AVOutputFormat* format = nullptr;
  if (is_rtmp_url(url)) {
    format = av_guess_format("flv", nullptr, nullptr);
  } else if (is_rtsp_url(url)) {
    format = av_guess_format("rtsp", nullptr, nullptr);
  } else {
    format = av_guess_format(nullptr, url, nullptr);
  }
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
