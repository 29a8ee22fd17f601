// Files that are deleted or renamed while they are recorded.
#pragma once

#include <functional>
#include <string>

#include "files.h"

namespace zeva {

// Tells once for each of a recording's two files that its path leads to another file or none by
// now. Used by one thread at a time.
class PathWatch {
 public:
  using Report = std::function<void(int32_t code, const std::string& text)>;

  void look_at_movie(PathState state, const std::string& url, const Report& report);
  void look_at_index(PathState state, const std::string& path, const std::string& url,
                     const Report& report);

 private:
  static bool tell(const std::string& what, PathState state, const char* renamed,
                   const Report& report);

  bool movie_gone = false;  // as far as was told
  bool index_gone = false;
};

}  // namespace zeva
