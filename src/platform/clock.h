// The two clocks of the library: a steady high-resolution counter, and the calendar.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace zeva {

// Steady counter and its ticks per second (QueryPerformanceCounter; the monotonic clock elsewhere).
int64_t performance_counter();
int64_t performance_frequency();

// Seconds since 1970 UTC.
int64_t calendar_seconds();

// `seconds` as local time through strftime's `format`; returns what strftime returns.
size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds);

}  // namespace zeva
