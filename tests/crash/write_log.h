// Everything a program did to the files of one folder, in the order in which it took effect.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace zeva_test {

// Files are numbered: a name may come to stand for another file, and a file for another name.
struct Operation {
  enum Kind : int32_t {
    kWrite,            // `text` at `value`
    kResize,           // to `value` bytes
    kSyncBegin,        // of the file; the end has the same `value`
    kSyncEnd,          // what had been written before the begin is on the disk
    kName,             // `text` is the file's name from now on; no file: the name is gone
    kFolderSyncBegin,  // the same of the folder's names
    kFolderSyncEnd,
    kMark,  // the program reached the point `text`
  };
  static constexpr int kNoFile = -1;

  Kind kind = kMark;
  int32_t file = kNoFile;
  int64_t value = 0;
  std::string text;
};

// The content of a file after an operation.
void perform(const Operation& operation, std::string& content);

struct WriteLog {
  std::vector<std::string> before;       // each file's bytes when the log began
  std::map<std::string, int32_t> names;  // at that time
  std::vector<Operation> operations;

  // The place behind a mark; the end without it.
  size_t mark(const std::string& text) const;
  // The last file that bore the name.
  int32_t last_file(const std::string& name) const;
  std::string last_content(int32_t file) const;

  void save(const std::filesystem::path& path) const;
  static WriteLog load(const std::filesystem::path& path);
};

}  // namespace zeva_test
