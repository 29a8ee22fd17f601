#include "logger.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "clock.h"
#include "immortal.h"

namespace qel {
namespace {

constexpr int kHighestLevel = 6;
constexpr char kMarks[] = "-FEWID=";
constexpr int kHeaderSize = 128;
// A line is capped at this many bytes before its newline. A longer message has its terminating zero
// written just before the newline; readers of the log rely on the cap, not on the zero.
constexpr int kLineCap = 1022;

std::atomic<Logger*> g_instance{nullptr};

const char* base_name(const char* file) {
  const char* name = file;
  for (const char* p = file; *p != '\0'; ++p) {
    if (*p == '/' || *p == '\\') name = p + 1;
  }
  return name;
}

int format_header(char* line_buffer, const char* tag, int level, const char* file, int line) {
  char time_stamp[64] = "";
  zeva::format_local_time(time_stamp, sizeof time_stamp, "%m%d-%H:%M:%S", zeva::calendar_seconds());
  return snprintf(line_buffer, kHeaderSize, "%s[%c][%s] %s %-4d: ", time_stamp, kMarks[level], tag,
                  base_name(file != nullptr ? file : ""), line);
}

int write_line(FILE* sink, const char* tag, int level, const char* file, int line, const char* fmt,
               va_list args) {
  char buffer[kLineCap + 2] = {};
  const int header = std::clamp(format_header(buffer, tag, level, file, line), 0, kLineCap);
  const int message = vsnprintf(buffer + header, static_cast<size_t>(kLineCap - header), fmt, args);
  const int total = std::clamp(header + message, 0, kLineCap);
  buffer[total] = '\n';
  buffer[total + 1] = '\0';
  fwrite(buffer, 1, static_cast<size_t>(total) + 1, sink);
  return fflush(sink);
}

}  // namespace

Logger::~Logger() { sink = stderr; }

Logger* Logger::instance(Logger* replacement) {
  if (replacement != nullptr) {
    g_instance = replacement;
    return replacement;
  }
  Logger* current = g_instance.load(std::memory_order_acquire);
  if (current != nullptr) return current;
  static zeva::Immortal<Logger> own;
  return g_instance.compare_exchange_strong(current, &own.value) ? &own.value : current;
}

int Logger::log(Logger* lg, const char* tag, int level, const char* file, int line, const char* fmt,
                ...) {
  const int clamped = std::clamp(level, 0, kHighestLevel);
  const auto callback = lg->has_callback.load(std::memory_order_acquire)
                            ? std::atomic_load(&lg->callback)
                            : std::shared_ptr<const Callback>();
  if (!callback && clamped > lg->level.load(std::memory_order_relaxed)) return kHighestLevel;

  va_list args;
  va_start(args, fmt);
  int result = 0;
  if (callback) {
    char message[kLineCap + 1] = "";
    result = vsnprintf(message, sizeof message, fmt, args);
    (*callback)(tag, clamped, file != nullptr ? file : "", line, message);
  } else {
    result = write_line(lg->sink, tag, clamped, file, line, fmt, args);
  }
  va_end(args);
  return result;
}

void Logger::set_callback(Callback cb) {
  auto next = cb ? std::make_shared<const Callback>(std::move(cb)) : nullptr;
  const bool installed = next != nullptr;
  auto previous = std::atomic_exchange(&callback, std::move(next));
  has_callback.store(installed, std::memory_order_release);
}

}  // namespace qel

namespace zeva {

void err_print(FILE* stream, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vfprintf(stream, fmt, args);
  va_end(args);
  fflush(stderr);
}

}  // namespace zeva
