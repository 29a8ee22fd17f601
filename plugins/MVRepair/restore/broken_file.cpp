#include "broken_file.h"

#include <algorithm>
#include <array>

#include "files.h"
#include "lost_bytes.h"
#include "written_size.h"

namespace zeva {
namespace {
constexpr int64_t kBufferBytes = 256 * 1024;
}

bool BrokenFile::open(const std::string& path) {
  close();
  size_bytes = file_size(path);
  if (size_bytes < 0) return false;
  file.reset(open_file(path.c_str(), "rb"));
  if (file == nullptr) return false;
  buffer.resize(static_cast<size_t>(std::min(kBufferBytes, size_bytes)));
  if (!buffer.empty()) setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  size_bytes = written_size(size_bytes, [this](int64_t position, char* bytes, size_t count) {
    return seek_file(file.get(), position) && fread(bytes, 1, count, file.get()) == count;
  });
  file_position = -1;
  return true;
}

void BrokenFile::close() {
  file.reset();  // before its buffer
  *this = BrokenFile();
}

BrokenFile::ReadResult BrokenFile::read(int64_t position, int32_t size, uint8_t* out) {
  if (!holds(position, size)) {
    met_end = true;
    const bool overlaps = size > 0 && position >= 0 && position < size_bytes;
    return {overlaps ? static_cast<int32_t>(size_bytes - position) : 0, 0, size_bytes};
  }
  if (size == 0) return {0, 0, position};
  if (position != file_position && !seek_file(file.get(), position)) {
    file_position = -1;
    return {0, 1, position};
  }
  const size_t count = fread(out, 1, static_cast<size_t>(size), file.get());
  const auto read_bytes = static_cast<int32_t>(count);
  const bool whole = read_bytes == size;
  const int error = ferror(file.get());
  // Without an error, somebody made the file shorter while it was read.
  if (!whole && error == 0) met_end = true;
  if (!whole) clearerr(file.get());
  file_position = whole ? position + size : -1;
  return {read_bytes, error, position + read_bytes};
}

bool BrokenFile::is_zero_block(int64_t position) {
  std::array<uint8_t, kLostBlockBytes> bytes{};
  const int64_t wanted = std::min(kLostBlockBytes, size_bytes - position);
  file_position = -1;
  if (!seek_file(file.get(), position)) return false;
  const size_t read_bytes = fread(bytes.data(), 1, static_cast<size_t>(wanted), file.get());
  return static_cast<int64_t>(read_bytes) == wanted && is_all_zero(bytes.data(), wanted);
}

}  // namespace zeva
