#include "drift_meter.h"

#include <gtest/gtest.h>

namespace {

// Blocks of 480 samples at 48 kHz: a hundred make a second.
TEST(DriftMeter, FindsWhatJitterCannotExplain) {
  const struct {
    const char* scenario;
    int64_t (*error)(int block);
    int64_t moved;  // in all, over 250 blocks
  } cases[] = {
      {"within 20 ms", [](int) { return int64_t{960}; }, 0},
      {"just beyond, found twice", [](int) { return int64_t{961}; }, 2 * 961},
      {"the other way", [](int) { return int64_t{-2000}; }, 2 * -2000},
      {"late by jitter, now and then in time",
       [](int n) { return n % 90 == 89 ? int64_t{0} : int64_t{5000}; }, 0},
      {"on both sides", [](int n) { return n % 2 == 0 ? int64_t{5000} : int64_t{-5000}; }, 0},
      {"the smallest of a second", [](int n) { return int64_t{1000} + n * 37 % 100; }, 2 * 1000},
      {"less than a second", [](int n) { return n < 99 ? int64_t{3000} : int64_t{0}; }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    ZV::DriftMeter meter(48000);
    int64_t moved = 0;
    for (int n = 0; n < 250; ++n) moved += meter.measure(c.error(n), 480);
    EXPECT_EQ(moved, c.moved);
  }
}

}  // namespace
