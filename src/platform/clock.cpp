#include "clock.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <time.h>
#endif

namespace zeva {

#ifdef _WIN32

int64_t performance_counter() {
  LARGE_INTEGER ticks{};
  QueryPerformanceCounter(&ticks);
  return ticks.QuadPart;
}

int64_t performance_frequency() {
  LARGE_INTEGER ticks{};
  QueryPerformanceFrequency(&ticks);
  return ticks.QuadPart;
}

int64_t calendar_seconds() { return _time64(nullptr); }

size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds) {
  __time64_t when = seconds;
  struct tm local {};
  _localtime64_s(&local, &when);
  return strftime(out, size_bytes, format, &local);
}

#else

namespace {
constexpr int64_t kNanosecondsPerSecond = 1000000000;
}

int64_t performance_counter() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

int64_t performance_frequency() { return kNanosecondsPerSecond; }

int64_t calendar_seconds() { return time(nullptr); }

size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds) {
  const time_t when = seconds;
  struct tm local {};
  localtime_r(&when, &local);
  return strftime(out, size_bytes, format, &local);
}

#endif

}  // namespace zeva
