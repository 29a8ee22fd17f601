// The space that a growing file may still take of its disk.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace zeva {

// Asks the system for the disk's free space once a second, and in between once a file has grown by
// a few MiB, so that a fast one does not run far past the limit while others fill the disk as well.
// The file's own part of the disk, written or set aside, counts as room for it. Used by one
// thread at a time; every function may block as long as the system does not answer.
class DiskRoom {
 public:
  using FreeBytes = int64_t (*)(const std::string& path);

  // Without a path there is nothing to watch.
  void watch(const std::string& of_path, FreeBytes by);
  // That much of the disk is to stay free; 0 for no limit.
  void keep_free(int64_t bytes) { kept_bytes = std::min(bytes, INT64_MAX / 2); }

  // How many bytes longer than `end_bytes` the file may become, of which `own_bytes` are the file's
  // already; negative when that is too long. INT64_MAX without a limit.
  int64_t left(int64_t end_bytes, int64_t own_bytes);

  // Whoever asks how much is free gets the answer of now.
  void ask_again() { ask(asked_bytes, 0); }

  bool is_watching() const { return !path.empty(); }
  // True when the last answer is a second old.
  bool is_due() const;
  // The system's last answer; -1 for none.
  int64_t free_bytes() const { return answer_bytes; }

 private:
  void ask(int64_t end_bytes, int64_t own_bytes);

  std::string path;
  FreeBytes free_bytes_of = nullptr;
  int64_t kept_bytes = 0;
  int64_t answer_bytes = -1;
  int64_t next_us = 0;       // of the clock
  int64_t asked_bytes = 0;   // the file's end when the system was asked
  int64_t whole_bytes = -1;  // the file's end at which the disk was full
};

}  // namespace zeva
