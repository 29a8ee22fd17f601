// The movie without its trailer, read packet by packet.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "files.h"

namespace zeva {

// Owns the file, which it never changes, and its read buffer. Used by one thread at a time.
class BrokenFile {
 public:
  // False when there is no regular file to read at the path.
  [[nodiscard]] bool open(const std::string& path);
  void close();

  struct ReadResult {
    int32_t count = 0;     // bytes read
    int error = 0;         // not 0: the system could not read the place
    int64_t position = 0;  // behind the last byte read
  };

  // Reads `size` bytes at `position` into `out`. A place that is not (wholly) inside the file
  // counts as a read that met the end, and so does a negative size; `out` needs no room for those.
  ReadResult read(int64_t position, int32_t size, uint8_t* out);

  // True when the kLostBlockBytes from `position` on, as far as the file reaches, are zeros.
  bool is_zero_block(int64_t position);

  // For bytes that are not wanted: a place outside the file counts as the end here, too.
  void pass_over(int64_t position, int32_t size) { met_end = met_end || !holds(position, size); }

  bool holds(int64_t position, int32_t size) const {
    return size >= 0 && position >= 0 && position <= size_bytes && size <= size_bytes - position;
  }
  // Nothing behind this point can be placed any more.
  bool at_end() const { return met_end; }

 private:
  std::vector<char> buffer;
  FilePtr file;
  int64_t size_bytes = 0;     // zeros that nobody wrote left out
  int64_t file_position = 0;  // where the system stands; -1: unknown
  bool met_end = false;
};

}  // namespace zeva
