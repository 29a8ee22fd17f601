#include "clock.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "zeva/record.h"

namespace {

// Hosts stamp with the system clock: calendar time to the second, the steady clock's fraction of
// it.
TEST(Clock, OfTheHostsIsTheSteadyOneMovedByWholeSeconds) {
  const int64_t before = zeva::steady_us();
  const int64_t host = ZEVA_current_sys_usec();
  const int64_t after = zeva::steady_us();
  EXPECT_LE(before, after);
  EXPECT_LE((host - before) % 1000000, after - before);
  EXPECT_LE(std::abs(host / 1000000 - zeva::calendar_seconds()), 2);
}

}  // namespace
