#include "output_url.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zeva_tool {

bool has_ending(const std::string& url, const char* ending) {
  size_t size = strlen(ending);
  return url.size() >= size && av_strcasecmp(url.c_str() + url.size() - size, ending) == 0;
}

bool has_scheme(const std::string& url, const char* scheme) {
  size_t size = strlen(scheme);
  return av_strncasecmp(url.c_str(), scheme, size) == 0 && url.compare(size, 3, "://") == 0;
}

const LiveStream* live_stream(const std::string& url) {
  static constexpr std::array<LiveStream, 4> all{{{"rtmp", "flv", AV_CODEC_ID_AAC},
                                                  {"rtmps", "flv", AV_CODEC_ID_AAC},
                                                  {"rtsp", "rtsp", AV_CODEC_ID_OPUS},
                                                  {"srt", "mpegts", AV_CODEC_ID_AAC}}};
  const auto* found = std::find_if(all.begin(), all.end(), [&url](const LiveStream& stream) {
    return has_scheme(url, stream.scheme);
  });
  return found != all.end() ? found : nullptr;
}

bool is_local_file(const std::string& url) {
  return url.find("://") == std::string::npos && url.compare(0, 5, "pipe:") != 0;
}

std::string local_path(const std::string& url) {
  return url.compare(0, 5, "file:") == 0 ? url.substr(5) : url;
}

AVOutputFormat* main_container(const std::string& url) {
  if (const LiveStream* live = live_stream(url)) {
    return av_guess_format(live->muxer, nullptr, nullptr);
  }
  AVOutputFormat* format = av_guess_format(nullptr, url.c_str(), nullptr);
  return format ? format : av_guess_format("mp4", nullptr, nullptr);
}

AVOutputFormat* further_container(const std::string& url) {
  const LiveStream* live = live_stream(url);
  return live ? av_guess_format(live->muxer, nullptr, nullptr)
              : av_guess_format(nullptr, url.c_str(), nullptr);
}

bool takes_index(const std::string& url) {
  static const std::array<const char*, 7> family{"mp4", "mov", "ipod", "3gp", "3g2", "psp", "f4v"};
  const AVOutputFormat* format = is_local_file(url) ? main_container(url) : nullptr;
  return format && std::any_of(family.begin(), family.end(), [format](const char* name) {
           return strcmp(format->name, name) == 0;
         });
}

bool has_unknown_ending(const std::string& url) {
  return av_guess_format(nullptr, url.c_str(), nullptr) == nullptr;
}

}  // namespace zeva_tool
