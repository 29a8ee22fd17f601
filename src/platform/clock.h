// The two clocks of the library: a steady one, and the calendar.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace zeva {

// Microseconds of a clock that never goes back (QueryPerformanceCounter; the monotonic clock
// elsewhere). Counts from an arbitrary moment.
int64_t steady_us();

// Seconds since 1970 UTC.
int64_t calendar_seconds();

// `seconds` as local time through strftime's `format`; returns what strftime returns.
size_t format_local_time(char* out, size_t size_bytes, const char* format, int64_t seconds);

}  // namespace zeva
