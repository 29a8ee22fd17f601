#include "line_reader.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr size_t kBufferBytes = 1 << 20;

}  // namespace

LineReader::LineReader(size_t max_line_bytes)
    : max_line(max_line_bytes), buffer(std::max(kBufferBytes, 2 * max_line_bytes)) {}

Status LineReader::open(const std::string& path) {
  std::error_code error;
  fs::path name = fs::u8path(path);
  if (!fs::exists(name, error)) return Status(path + " does not exist");
  if (!fs::is_regular_file(name, error)) return Status(path + " is not a file");
  file.open(name, std::ios::binary);
  return file ? Status() : Status(path + " cannot be opened");
}

bool LineReader::next(std::string_view& line) {
  if (end - begin < max_line) refill();
  if (begin == end) return false;
  size_t most = std::min(end - begin, max_line);
  const char* start = buffer.data() + begin;
  const void* feed = memchr(start, '\n', most);
  size_t length = feed ? static_cast<const char*>(feed) - start + 1 : most;
  line = {start, length};
  begin += length;
  ++number;
  return true;
}

void LineReader::refill() {
  if (!file) return;
  memmove(buffer.data(), buffer.data() + begin, end - begin);
  end -= begin;
  begin = 0;
  file.read(buffer.data() + end, static_cast<std::streamsize>(buffer.size() - end));
  end += static_cast<size_t>(file.gcount());
}

}  // namespace zeva_tool
