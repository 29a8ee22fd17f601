// Writes the index's text to a file that may refuse it for a while.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "index_format.h"
#include "new_file.h"

namespace zeva {

// Owns the file and the text not yet written: at most the head and a little more than one line. The
// write after a failed one begins at the same place with the same text, so that no torn record
// stays in the middle of the file. Used by one thread at a time. Results are 0 or errno values.
class IndexFile {
 public:
  using Write = size_t (*)(const void* data, size_t size, size_t count, FILE* file);

  // `write` is fwrite, unless a test wants writes to fail.
  explicit IndexFile(Write write = fwrite) : write_bytes(write) {}
  ~IndexFile() { close(); }
  IndexFile(const IndexFile&) = delete;
  IndexFile& operator=(const IndexFile&) = delete;

  // An older index keeps its bytes until `commit`.
  [[nodiscard]] int open(const std::string& path);
  bool is_open() const { return file.is_open(); }
  const std::string& path() const { return file.path(); }
  // Where the path leads to; kSame before `commit` and when no index is open.
  PathState state() const;

  // Header and stream lines, each with its line feed.
  void set_head(std::string text);
  bool has_head() const { return head_set; }

  // Cuts off an older index and writes the head. May be called again after an error; so may
  // `write`, which tries it as well.
  [[nodiscard]] int commit();
  bool is_committed() const { return file.is_committed(); }
  bool replaces_older() const { return file.replaces(); }

  // False while a whole line waits: a record more would have to be kept in memory.
  bool has_room() const { return unwritten.size() <= head_bytes + kIndexLineBytes; }
  // Requires room. Allocates nothing.
  void append(const IndexRecord& record);
  bool is_line_full() const { return line_bytes > kIndexLineBytes; }

  // Hands all text to the operating system; a full line gets its line feed.
  [[nodiscard]] int write();

  // Drops what is not written. A new index without its head does not stay.
  int close();

 private:
  NewFile file;
  const Write write_bytes;
  std::string unwritten;
  int64_t written_bytes = 0;  // of the file; a failed write may have left more
  int line_bytes = 0;         // of the line that the next record belongs to
  size_t head_bytes = 0;      // of `unwritten`
  bool head_set = false;
};

}  // namespace zeva
