// FFmpeg's I/O on a file that replaces an older one only once it is worth it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "av_handles.h"
#include "new_file.h"

namespace zeva {

// Keeps what the muxer writes in memory until `commit`, and writes it into the file from then on.
// Owns file and I/O context. Used by one thread at a time. Results are FFmpeg codes.
class FileIo {
 public:
  FileIo() = default;
  ~FileIo() { (void)close(); }
  FileIo(const FileIo&) = delete;
  FileIo& operator=(const FileIo&) = delete;

  [[nodiscard]] int open(const std::string& path);
  // An older file's bytes go, and what was kept is written.
  [[nodiscard]] int commit();
  bool is_committed() const { return file.is_committed(); }

  // Makes sure that the disk has room for the file up to `end_bytes`. False when the disk is full;
  // true also where the file system cannot tell.
  [[nodiscard]] bool ensure_room(int64_t end_bytes);

  // Writes out what FFmpeg holds back and closes the file. Without `commit`, nothing is left.
  int close();

  AVIOContext* context() const { return pb.get(); }

 private:
  static int write_packet(void* self, uint8_t* data, int size);
  static int64_t seek(void* self, int64_t offset, int whence);
  int write_at_position(const uint8_t* data, size_t size);
  int keep(const uint8_t* data, size_t size);

  NewFile file;
  CustomIoPtr pb;
  std::vector<uint8_t> kept;  // before commit, from the first byte of the file on
  int64_t position = 0;
  int64_t size = 0;
  int64_t reserved = 0;
  bool can_reserve = true;
};

}  // namespace zeva
