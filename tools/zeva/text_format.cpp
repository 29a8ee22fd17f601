#include "text_format.h"

namespace zeva_tool {
namespace {

constexpr int64_t kLongUs = 120000000;

}  // namespace

std::string movie_time(int64_t us) {
  int64_t tenths = us / 100000;
  return formatted("%02d:%02d:%02d.%d", static_cast<int>(tenths / 36000),
                   static_cast<int>(tenths / 600 % 60), static_cast<int>(tenths / 10 % 60),
                   static_cast<int>(tenths % 10));
}

std::string length_text(int64_t us) {
  if (us >= kLongUs) return movie_time(us);
  return formatted("%.2f s", static_cast<double>(us) / 1e6);
}

std::string size_text(int64_t bytes) {
  auto size = static_cast<double>(bytes);
  if (bytes < 1000) return count_text(bytes, "byte", "bytes");
  if (bytes < 1000000) return formatted("%.1f kB", size / 1e3);
  return bytes < 1000000000 ? formatted("%.1f MB", size / 1e6) : formatted("%.2f GB", size / 1e9);
}

std::string count_text(int64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

size_t column_count(const std::string& text) {
  size_t count = 0;
  for (char c : text) count += !is_utf8_continuation(c);
  return count;
}

std::string padded(const std::string& text, size_t columns) {
  size_t used = column_count(text);
  return text + std::string(columns > used ? columns - used : 0, ' ');
}

}  // namespace zeva_tool
