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
//
// FFmpeg drops all that it is given after a write that failed. So it never hears of one: what the
// disk refused, and all behind it, is kept in memory, and `error` tells. The caller stops then, and
// may `retry` before it writes the end of the file: a fault that is over has cost nothing.
class FileIo {
 public:
  // The calls that reach the disk; tests let them fail.
  struct Calls {
    size_t (*write)(const void* data, size_t size, size_t count, FILE* file) = fwrite;
    int (*reserve)(FILE* file, int64_t begin_bytes, int64_t end_bytes) = reserve_space;
    int64_t (*free_bytes)(const std::string& path) = zeva::free_bytes;
  };

  FileIo() : FileIo(Calls()) {}
  explicit FileIo(const Calls& calls) : calls(calls) {}
  ~FileIo() { (void)close(); }
  FileIo(const FileIo&) = delete;
  FileIo& operator=(const FileIo&) = delete;

  [[nodiscard]] int open(const std::string& path);
  // An older file's bytes go, and what was kept is written.
  [[nodiscard]] int commit();
  bool is_committed() const { return file.is_committed(); }

  // Makes sure that the disk has room for the file up to `end_bytes`, and sets aside at most
  // `spare_bytes` more. False when the disk is full; true also where the file system cannot tell.
  [[nodiscard]] bool ensure_room(int64_t end_bytes, int64_t spare_bytes);
  // False once the file system has refused to set space aside.
  bool reserves() const { return can_reserve; }
  // The file's part of the disk already: written, set aside, or of the file that is replaced.
  int64_t own_bytes() const;

  // The code of the write that failed; 0 while none did.
  int error() const;
  // Writes what is kept since then. 0 when the file is as if nothing had failed.
  [[nodiscard]] int retry();

  PathState path_state() const { return zeva::path_state(file.get(), file.path()); }
  // False when there are not so many bytes. What FFmpeg holds back is not there yet.
  [[nodiscard]] bool read(int64_t offset_bytes, uint8_t* data, size_t size);

  // Writes out what FFmpeg holds back and closes the file. Without `commit`, nothing is left.
  int close();

  AVIOContext* context() const { return pb.get(); }

 private:
  struct Piece {
    int64_t position;
    std::vector<uint8_t> bytes;
  };
  static int write_packet(void* self, uint8_t* data, int size);
  static int64_t seek(void* self, int64_t offset, int whence);
  int write_or_keep(const uint8_t* data, size_t size);
  size_t write_at_position(const uint8_t* data, size_t size);
  int keep(const uint8_t* data, size_t size);
  int write_kept();
  void move_to(int64_t to);
  int give_back_space();

  const Calls calls;
  NewFile file;
  CustomIoPtr pb;
  std::vector<Piece> kept;  // in the order of their writes
  int failure = 0;
  int64_t position = 0;
  int64_t size = 0;     // with what is kept
  int64_t written = 0;  // the end of what the file was given
  int64_t reserved = 0;
  bool can_reserve = true;
};

}  // namespace zeva
