#include "file_check.h"

#include <filesystem>
#include <system_error>

#ifdef _WIN32
#include <windows.h>

#include <algorithm>
#include <cwctype>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

// Links are followed as far as the path exists; the rest is compared by name.
fs::path resolved(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(fs::u8path(path), error);
  fs::path canonical = fs::weakly_canonical(absolute, error);
  return error ? absolute.lexically_normal() : canonical;
}

#ifdef _WIN32

// Windows does not tell upper from lower case in names.
bool same_name(const fs::path& a, const fs::path& b) {
  auto lower = [](std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(), std::towlower);
    return text;
  };
  return lower(a.wstring()) == lower(b.wstring());
}

#else

bool same_name(const fs::path& a, const fs::path& b) { return a == b; }

#endif

}  // namespace

Status check_is_file(const std::string& path) {
  std::error_code error;
  fs::path name = fs::u8path(path);
  if (!fs::exists(name, error)) return Status(path + " does not exist");
  if (fs::is_directory(name, error)) return Status(path + " is a folder, not a file");
  return fs::is_regular_file(name, error) ? Status() : Status(path + " is not a file");
}

int64_t regular_file_bytes(const std::string& path) {
  std::error_code error;
  fs::path name = fs::u8path(path);
  if (!fs::is_regular_file(name, error)) return -1;
  uintmax_t bytes = fs::file_size(name, error);
  return error ? -1 : static_cast<int64_t>(bytes);
}

bool is_special_file(const std::string& path) {
  std::error_code error;
  return fs::is_other(fs::u8path(path), error);
}

bool same_file(const std::string& a, const std::string& b) {
  std::error_code error;
  return fs::equivalent(fs::u8path(a), fs::u8path(b), error) || same_name(resolved(a), resolved(b));
}

#ifdef _WIN32

bool is_being_written(const std::string& path) {
  // Others may read, so that only those who write are in the way.
  HANDLE file = CreateFileW(fs::u8path(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION;
  CloseHandle(file);
  return false;
}

#else

bool is_being_written(const std::string& path) {
  int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) return false;
  // Shared, so that two programs that look at the same time do not see each other.
  bool locked = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return locked;
}

#endif

}  // namespace zeva_tool
