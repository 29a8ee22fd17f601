// A file in the making that replaces an older one only once it is worth it.
#pragma once

#include <cstdint>
#include <string>

#include "files.h"

namespace zeva {

// Owns the open file. An older file of the same name keeps its bytes until `commit`; a file that is
// closed without one leaves nothing behind that was not there before. Used by one thread at a time.
class NewFile {
 public:
  enum class Mode {
    kBinary,  // can be read as well
    kText,    // line feeds become the system's line ends
  };

  NewFile() = default;
  ~NewFile() { close(); }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Opens the regular file at the UTF-8 path for writing, or creates an empty one. 0 or an errno
  // value.
  [[nodiscard]] int open(const std::string& path, Mode mode);

  // Cuts off what an older file held; from here on the file stays. 0 or an errno value.
  [[nodiscard]] int commit();

  bool is_open() const { return file != nullptr; }
  bool is_committed() const { return committed; }
  // True when there was an older file; its bytes are gone after `commit`.
  bool replaces() const { return !created; }
  FILE* get() const { return file.get(); }
  const std::string& path() const { return name; }

  // 0, or the errno value of a close that could not write everything.
  int close();

 private:
  FilePtr file;
  std::string name;
  bool created = false;
  bool committed = false;
};

}  // namespace zeva
