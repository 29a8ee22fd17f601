#include "files.h"

#include <filesystem>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
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

#else

std::u16string to_wide(const char* s, bool /*utf8: every text is UTF-8 here*/) {
  if (s == nullptr) return {};
  std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> converter(std::string{},
                                                                              std::u16string{});
  return converter.from_bytes(s);
}

FILE* open_file(const char* path, const char* mode) {
  return path != nullptr ? fopen(path, mode) : nullptr;
}

bool seek_file(FILE* file, int64_t offset_bytes) {
  return fseeko(file, offset_bytes, SEEK_SET) == 0;
}

int64_t tell_file(FILE* file) { return ftello(file); }

bool sync_file(FILE* file) { return fdatasync(fileno(file)) == 0; }

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
