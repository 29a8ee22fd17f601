#include "mp4_layout.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "file_check.h"
#include "written_size.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int64_t kShortHeader = 8;
constexpr int64_t kLongHeader = 16;  // with a 64-bit size behind the type
// No recording has more before its moov box; noise that looks like boxes may.
constexpr int kMaxBoxes = 10000;

struct Box {
  std::array<char, 4> type{};
  int64_t payload = 0;
  int64_t end = 0;  // may lie behind the end of a file that was cut
  bool is(const char* name) const { return memcmp(type.data(), name, type.size()) == 0; }
};

uint64_t big_endian(const unsigned char* bytes, int count) {
  uint64_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

// False when there is no box at `position`.
bool read_box(std::ifstream& file, int64_t position, int64_t file_bytes, Box& box) {
  std::array<unsigned char, kLongHeader> header{};
  if (position > file_bytes - kShortHeader) return false;
  int64_t available = std::min(kLongHeader, file_bytes - position);
  file.seekg(position);
  if (!file.read(reinterpret_cast<char*>(header.data()), available)) return false;
  memcpy(box.type.data(), header.data() + 4, box.type.size());
  uint64_t size = big_endian(header.data(), 4);
  int64_t header_bytes = kShortHeader;
  if (size == 1) {
    if (available < kLongHeader) return false;
    size = big_endian(header.data() + kShortHeader, 8);
    header_bytes = kLongHeader;
  }
  // 0: up to the end of the file, also what a writer leaves while it does not know the size yet.
  if (size == 0) size = static_cast<uint64_t>(file_bytes - position);
  if (size < static_cast<uint64_t>(header_bytes)) return false;
  box.payload = position + header_bytes;
  auto most = static_cast<uint64_t>(INT64_MAX - position);
  box.end = position + static_cast<int64_t>(std::min(size, most));
  return true;
}

}  // namespace

Status read_mp4_layout(const std::string& path, Mp4Layout& layout) {
  layout = {};
  Status status = check_is_file(path);
  if (!status.ok()) return status;
  std::error_code error;
  fs::path name = fs::u8path(path);
  layout.file_bytes = static_cast<int64_t>(fs::file_size(name, error));
  if (error) return Status(path + " cannot be read: " + error.message());
  std::ifstream file(name, std::ios::binary);
  if (!file) return Status(path + " cannot be opened");
  layout.written_bytes =
      zeva::written_size(layout.file_bytes, [&](int64_t position, char* bytes, size_t count) {
        file.seekg(position);
        return !!file.read(bytes, static_cast<std::streamsize>(count));
      });
  file.clear();
  Box box;
  for (int i = 0; i < kMaxBoxes && !layout.has_trailer; ++i) {
    if (!read_box(file, box.end, layout.file_bytes, box)) break;
    if (box.is("moov")) layout.has_trailer = box.end <= layout.file_bytes;
    if (box.is("mdat") && layout.media_begin == 0) {
      layout.media_begin = box.payload;
      layout.media_end = std::min(box.end, layout.written_bytes);
    }
  }
  return {};
}

}  // namespace zeva_tool
