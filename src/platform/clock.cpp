#include "clock.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <time.h>
#endif

namespace zeva {
namespace {
constexpr int64_t kMicrosecondsPerSecond = 1000000;
}

#ifdef _WIN32

int64_t steady_us() {
  static const int64_t frequency = [] {
    LARGE_INTEGER ticks_per_second{};
    QueryPerformanceFrequency(&ticks_per_second);
    return ticks_per_second.QuadPart != 0 ? ticks_per_second.QuadPart : 1;
  }();
  LARGE_INTEGER ticks{};
  QueryPerformanceCounter(&ticks);
  // Seconds apart from their fraction: the product of all ticks would overflow after days.
  return ticks.QuadPart / frequency * kMicrosecondsPerSecond +
         ticks.QuadPart % frequency * kMicrosecondsPerSecond / frequency;
}

int64_t calendar_seconds() { return _time64(nullptr); }

size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds) {
  __time64_t when = seconds;
  struct tm local {};
  _localtime64_s(&local, &when);
  return strftime(out, size_bytes, format, &local);
}

#else

int64_t steady_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

int64_t calendar_seconds() { return time(nullptr); }

size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds) {
  const time_t when = seconds;
  struct tm local {};
  localtime_r(&when, &local);
  return strftime(out, size_bytes, format, &local);
}

#endif

}  // namespace zeva
