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

bool is_local_file(const std::string& url) {
  return url.find("://") == std::string::npos && url.compare(0, 5, "pipe:") != 0;
}

std::string local_path(const std::string& url) {
  return url.compare(0, 5, "file:") == 0 ? url.substr(5) : url;
}

AVOutputFormat* main_container(const std::string& url) {
  if (has_scheme(url, "rtmp")) return av_guess_format("flv", nullptr, nullptr);
  if (has_scheme(url, "rtsp")) return av_guess_format("rtsp", nullptr, nullptr);
  AVOutputFormat* format = av_guess_format(nullptr, url.c_str(), nullptr);
  return format ? format : av_guess_format("mp4", nullptr, nullptr);
}

AVOutputFormat* further_container(const std::string& url) {
  return has_scheme(url, "rtmp") ? av_guess_format("flv", nullptr, nullptr)
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
