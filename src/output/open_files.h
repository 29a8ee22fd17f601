// The files that one recording writes.
#pragma once

#include <string>
#include <vector>

#include "status.h"

namespace zeva {

// Knows the paths of a recording's movies and index, each added once it is open. Used by one
// thread.
class OpenFiles {
 public:
  // Fails when the path leads to a file of the recording: two writers of one file would leave
  // neither's bytes.
  Status check(const std::string& path) const;
  // An empty path, of a stream, is passed over.
  void add(const std::string& path);

 private:
  std::vector<std::string> paths;
};

}  // namespace zeva
