#include "line_reader.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "file_check.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr size_t kBufferBytes = 1 << 20;

}  // namespace

LineReader::LineReader(size_t max_line_bytes)
    : max_line(max_line_bytes), buffer(std::max(kBufferBytes, 2 * max_line_bytes)) {}

Status LineReader::open(const std::string& path) {
  Status status = check_is_file(path);
  if (!status.ok()) return status;
  file.open(fs::u8path(path), std::ios::binary);
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
