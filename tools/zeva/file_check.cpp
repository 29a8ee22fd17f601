#include "file_check.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace zeva_tool {

Status check_is_file(const std::string& path) {
  std::error_code error;
  fs::path name = fs::u8path(path);
  if (!fs::exists(name, error)) return Status(path + " does not exist");
  if (fs::is_directory(name, error)) return Status(path + " is a folder, not a file");
  return fs::is_regular_file(name, error) ? Status() : Status(path + " is not a file");
}

}  // namespace zeva_tool
