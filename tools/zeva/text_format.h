// Numbers as the user reads them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace zeva_tool {

// printf into a string, of at most 255 bytes.
template <typename... Values>
std::string formatted(const char* format, Values... values) {
  char buffer[256];
  snprintf(buffer, sizeof buffer, format, values...);
  return buffer;
}

std::string movie_time(int64_t us);    // 01:02:03.4
std::string length_text(int64_t us);   // 3.42 s, from two minutes on 00:02:03.4
std::string size_text(int64_t bytes);  // 512 bytes, 12.3 kB, 4.5 MB, 1.23 GB
std::string count_text(int64_t count, const char* one, const char* many);  // 1 packet, 2 packets

inline bool is_utf8_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }
size_t column_count(const std::string& text);                 // of UTF-8, a character a column
std::string padded(const std::string& text, size_t columns);  // with blanks behind

}  // namespace zeva_tool
