#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "files.h"
#include "logger.h"
#include "zeva/log.h"

namespace {

// Host programs hand over paths as users pasted them: in quotes, with blanks and line ends.
std::string trimmed(const char* path) {
  static constexpr char kDropped[] = "\"\b\t\n\r ";
  std::string text(path);
  while (text.size() > 1 && strchr(kDropped, text.back()) != nullptr) text.pop_back();
  return text.erase(0, std::min(text.find_first_not_of(kDropped), text.size()));
}

FILE* open_log_file(const char* path) {
  if (path == nullptr) return nullptr;
  return zeva::open_file(trimmed(path).c_str(), "a+");
}

}  // namespace

extern "C" {

void ZEVA_Log_On(const char* path, int level) {
  FILE* file = open_log_file(path);
  ZEVA_Log_On2(file, level);
}

void ZEVA_Log_On2(FILE* stream, int level) {
  qel::Logger::instance(nullptr)->sink = stream != nullptr ? stream : stderr;
  ZEVA_Log_Level(level);
}

void ZEVA_Log_Off() { qel::Logger::instance(nullptr)->sink = stdout != nullptr ? stdout : stderr; }

void ZEVA_Log_Level(int level) { qel::Logger::instance(nullptr)->level = level; }

void ZEVA_Set_Log_Callback(
    std::function<void(const char*, int, const char*, int, const char*)> callback) {
  qel::Logger::instance(nullptr)->set_callback(std::move(callback));
}

}  // extern "C"
