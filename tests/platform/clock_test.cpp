#include "clock.h"

#include <gtest/gtest.h>

#include "movie_capture2.h"

namespace {

int64_t counter_us(int64_t ticks) {
  return av_rescale(ticks, 1000000, zeva::performance_frequency());
}

TEST(Clock, SystemTimeIsCalendarTime) {
  const int64_t before = zeva::calendar_seconds();
  const int64_t now_us = MovieCapture2::sys_usec();
  const int64_t after = zeva::calendar_seconds();
  // Calendar seconds are whole, and so are the counter's where the two were tied together.
  EXPECT_GE(now_us, (before - 1) * 1000000);
  EXPECT_LE(now_us, (after + 2) * 1000000);
}

TEST(Clock, SystemTimeAdvancesWithTheCounter) {
  int64_t previous_us = MovieCapture2::sys_usec();
  const int64_t first_us = previous_us;
  const int64_t begin = zeva::performance_counter();
  for (int i = 0; i < 100000; ++i) {
    const int64_t now_us = MovieCapture2::sys_usec();
    ASSERT_GE(now_us, previous_us);
    previous_us = now_us;
  }
  const int64_t end = zeva::performance_counter();
  const int64_t last_us = MovieCapture2::sys_usec();
  // The readings enclose the counter's span; 2 us for what both round off.
  EXPECT_GE(last_us - first_us + 2, counter_us(end - begin));
  EXPECT_GT(last_us, first_us);
}

TEST(Clock, FormatsLocalTime) {
  char text[64] = "";
  const int64_t midday_2001 = 1000000000;  // 9 September 2001, whatever the zone
  EXPECT_EQ(zeva::format_local_time(text, sizeof text, "%Y", midday_2001), 4U);
  EXPECT_STREQ(text, "2001");
  char small[4] = "";
  EXPECT_EQ(zeva::format_local_time(small, sizeof small, "%Y-%m", midday_2001), 0U);
}

}  // namespace
