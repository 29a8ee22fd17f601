#include "files.h"

#include <cerrno>
#include <filesystem>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <codecvt>
#include <locale>
#endif

namespace zeva {

#ifdef _WIN32

std::u16string to_wide(const char* s, bool utf8) {
  if (s == nullptr) return {};
  const UINT code_page = utf8 ? CP_UTF8 : CP_ACP;
  const int announced = MultiByteToWideChar(code_page, 0, s, -1, nullptr, 0);
  if (announced <= 0) return {};
  std::u16string wide(static_cast<size_t>(announced), u'\0');
  const int converted =
      MultiByteToWideChar(code_page, 0, s, -1, reinterpret_cast<wchar_t*>(wide.data()), announced);
  if (converted != announced) return {};
  wide.resize(wide.size() - 1);  // the terminating zero
  return wide;
}

FILE* open_file(const char* path, const char* mode) {
  if (path == nullptr) return nullptr;
  const std::u16string wide_path = to_wide(path, true);
  const std::u16string wide_mode = to_wide(mode, true);
  FILE* file = _wfopen(reinterpret_cast<const wchar_t*>(wide_path.c_str()),
                       reinterpret_cast<const wchar_t*>(wide_mode.c_str()));
  return file != nullptr ? file : fopen(path, mode);
}

bool seek_file(FILE* file, int64_t offset_bytes) {
  return _fseeki64(file, offset_bytes, SEEK_SET) == 0;
}

int64_t tell_file(FILE* file) { return _ftelli64(file); }

bool sync_file(FILE* file) { return _commit(_fileno(file)) == 0; }

bool sync_folder_of(const std::string& /*path: NTFS keeps its journal by itself*/) { return true; }

int truncate_file(FILE* file, int64_t size_bytes) {
  if (fflush(file) != 0) return errno;
  return _chsize_s(_fileno(file), size_bytes);
}

int reserve_space(FILE* file, int64_t /*begin_bytes: asked for as a whole*/, int64_t end_bytes) {
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
  FILE_ALLOCATION_INFO wanted{};
  wanted.AllocationSize.QuadPart = end_bytes;
  if (SetFileInformationByHandle(handle, FileAllocationInfo, &wanted, sizeof wanted) != 0) return 0;
  return GetLastError() == ERROR_DISK_FULL ? ENOSPC : ENOTSUP;
}

int64_t free_bytes(const std::string& path) {
  const size_t slash = path.find_last_of("/\\:");
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::u16string wide = to_wide(folder.c_str(), true);
  ULARGE_INTEGER left{};
  const auto* const name = reinterpret_cast<const wchar_t*>(wide.c_str());
  if (GetDiskFreeSpaceExW(name, &left, nullptr, nullptr) == 0) return -1;
  return static_cast<int64_t>(left.QuadPart);
}

PathState path_state(FILE* /*file: open, so its name stays*/, const std::string& /*path*/) {
  return PathState::kSame;
}

bool lock_file(FILE* /*file: sharing modes tell who writes*/) { return true; }

bool is_locked(const std::string& path) {
  const std::u16string wide = to_wide(path.c_str(), true);
  // Others may read, so that only those who write are in the way.
  const HANDLE file =
      CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), GENERIC_READ, FILE_SHARE_READ,
                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION;
  CloseHandle(file);
  return false;
}

void occupy_standard_descriptors() {
  // Programs without a console have these numbers taken by nothing, and none is given out anew.
  for (int number = _open("NUL", _O_RDWR); number >= 0; number = _open("NUL", _O_RDWR)) {
    if (number > 2) {
      _close(number);
      return;
    }
  }
}

#else

std::u16string to_wide(const char* s, bool /*utf8: every text is UTF-8 here*/) {
  if (s == nullptr) return {};
  std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> converter(std::string{},
                                                                              std::u16string{});
  return converter.from_bytes(s);
}

namespace {

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

}  // namespace

FILE* open_file(const char* path, const char* mode) {
  return path != nullptr ? fopen(path, mode) : nullptr;
}

bool seek_file(FILE* file, int64_t offset_bytes) {
  return fseeko(file, offset_bytes, SEEK_SET) == 0;
}

int64_t tell_file(FILE* file) { return ftello(file); }

bool sync_file(FILE* file) { return fdatasync(fileno(file)) == 0; }

bool sync_folder_of(const std::string& path) {
  const int number = ::open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (number < 0) return false;
  const bool kept = fsync(number) == 0;
  ::close(number);
  return kept;
}

int truncate_file(FILE* file, int64_t size_bytes) {
  if (fflush(file) != 0) return errno;
  return ftruncate(fileno(file), size_bytes) == 0 ? 0 : errno;
}

int reserve_space(FILE* file, int64_t begin_bytes, int64_t end_bytes) {
  const int64_t count = end_bytes - begin_bytes;
  int result = 0;
  do {
    result = fallocate(fileno(file), FALLOC_FL_KEEP_SIZE, begin_bytes, count) == 0 ? 0 : errno;
  } while (result == EINTR);
  if (result == EDQUOT) return ENOSPC;
  return result == 0 || result == ENOSPC ? result : ENOTSUP;
}

int64_t free_bytes(const std::string& path) {
  struct statvfs disk {};
  if (statvfs(path.c_str(), &disk) != 0 && statvfs(folder_of(path).c_str(), &disk) != 0) return -1;
  // Some file systems in user space do not know their size.
  if (disk.f_blocks == 0) return -1;
  return static_cast<int64_t>(disk.f_bavail) * static_cast<int64_t>(disk.f_frsize);
}

PathState path_state(FILE* file, const std::string& path) {
  struct stat written {
  }, named{};
  if (fstat(fileno(file), &written) != 0) return PathState::kSame;
  if (stat(path.c_str(), &named) == 0) {
    if (written.st_dev == named.st_dev && written.st_ino == named.st_ino) return PathState::kSame;
  } else if (errno != ENOENT && errno != ENOTDIR) {
    return PathState::kSame;
  }
  return written.st_nlink == 0 ? PathState::kDeleted : PathState::kElsewhere;
}

bool lock_file(FILE* file) {
  // A child process that outlives this one would keep the lock.
  return fcntl(fileno(file), F_SETFD, FD_CLOEXEC) == 0 &&
         flock(fileno(file), LOCK_EX | LOCK_NB) == 0;
}

bool is_locked(const std::string& path) {
  const int number = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (number < 0) return false;
  // Shared, so that two programs that ask at the same time do not see each other.
  const bool locked = flock(number, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(number);
  return locked;
}

void occupy_standard_descriptors() {
  for (int number = ::open("/dev/null", O_RDWR); number >= 0;
       number = ::open("/dev/null", O_RDWR)) {
    if (number > 2) {
      ::close(number);
      return;
    }
  }
}

#endif

namespace fs = std::filesystem;

namespace {

// What `ask` finds out; `otherwise` when it fails, also over a path that is no UTF-8.
template <typename Answer, typename Question>
Answer answer_or(Answer otherwise, Question ask) {
  try {
    return ask();
  } catch (const std::exception&) {
    return otherwise;
  }
}

}  // namespace

bool file_exists(const std::string& path) {
  return answer_or(false, [&] { return fs::exists(fs::u8path(path)); });
}

bool remove_file(const std::string& path) {
  return answer_or(false, [&] { return fs::remove(fs::u8path(path)); });
}

int64_t file_size(const std::string& path) {
  return answer_or(int64_t{-1}, [&] {
    const fs::path file = fs::u8path(path);
    return fs::is_regular_file(file) ? static_cast<int64_t>(fs::file_size(file)) : -1;
  });
}

bool is_same_file(const std::string& a, const std::string& b) {
  return answer_or(false, [&] { return fs::equivalent(fs::u8path(a), fs::u8path(b)); });
}

}  // namespace zeva
