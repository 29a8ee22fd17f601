#include "open_files.h"

#include "ffmpeg.h"
#include "files.h"

namespace zeva {

Status OpenFiles::check(const std::string& path) const {
  for (const std::string& other : paths) {
    if (!path.empty() && is_same_file(path, other)) {
      return Status::failure(AVERROR(EINVAL), "'" + path + "' is a file of this recording already");
    }
  }
  return Status::success();
}

void OpenFiles::add(const std::string& path) {
  if (!path.empty()) paths.push_back(path);
}

}  // namespace zeva
