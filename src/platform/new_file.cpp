#include "new_file.h"

#include <cerrno>

namespace zeva {

int NewFile::open(const std::string& path, Mode mode) {
  const bool text = mode == Mode::kText;
  created = !file_exists(path);
  if (!created && file_size(path) < 0) return EINVAL;
  errno = 0;
  file.reset(open_file(path.c_str(), created ? (text ? "wt" : "w+b") : (text ? "r+t" : "r+b")));
  if (file == nullptr) return errno != 0 ? errno : EIO;
  name = path;
  committed = false;
  return 0;
}

int NewFile::commit() {
  if (committed) return 0;
  const int error = created ? 0 : truncate_file(file.get(), 0);
  committed = error == 0;
  return error;
}

int NewFile::close() {
  if (file == nullptr) return 0;
  errno = 0;
  const int error = fclose(file.release()) == 0 ? 0 : (errno != 0 ? errno : EIO);
  if (created && !committed) remove_file(name);
  return error;
}

}  // namespace zeva
