// Reads a large text file line by line, fast.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "status.h"

namespace zeva_tool {

class LineReader {
 public:
  // Lines longer than `max_line_bytes` come in pieces of that many bytes.
  explicit LineReader(size_t max_line_bytes);

  Status open(const std::string& path);  // UTF-8

  // The next line with its line end, if it has one, valid until the next call. False at the end.
  bool next(std::string_view& line);

  int64_t line_number() const { return number; }  // of the line last handed out, from 1

 private:
  void refill();

  const size_t max_line;
  std::ifstream file;
  std::vector<char> buffer;
  size_t begin = 0;
  size_t end = 0;
  int64_t number = 0;
};

}  // namespace zeva_tool
