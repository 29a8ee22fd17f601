#include "pts_smoother.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

namespace {

using Stamps = std::vector<int64_t>;
constexpr int64_t kMs = 1000, kSecond = 1000 * kMs;

Stamps in_steps(const std::vector<std::pair<int, int64_t>>& steps) {
  Stamps stamps{0};
  for (const auto& [count, interval] : steps) {
    for (int i = 0; i < count; ++i) stamps.push_back(stamps.back() + interval);
  }
  return stamps;
}

Stamps disturbed(Stamps stamps, const std::function<int64_t(size_t)>& by) {
  for (size_t i = 0; i < stamps.size(); ++i) stamps[i] += by(i);
  return stamps;
}

TEST(PtsSmoother, LeavesEvenSpacingAloneAndATenthOfJitter) {
  zeva::PtsSmoother even, late;
  for (int64_t i = 0; i < 200; ++i) {
    EXPECT_EQ(even.smooth(i * 40 * kMs), i * 40 * kMs);
    const int64_t lateness = i == 100 ? 20 * kMs : 0;
    const std::optional<int64_t> result = late.smooth(i * 40 * kMs + lateness);
    if (i <= 100) {
      EXPECT_EQ(result, i * 40 * kMs + lateness / 10);
    }
  }
}

// Two pictures in each packet, of which the host stamps the first.
TEST(PtsSmoother, SpreadsPacketsWithoutStampsEvenly) {
  zeva::PtsSmoother smoother;
  for (int64_t i = 0; i < 100; ++i) {
    EXPECT_EQ(smoother.smooth(i * 80 * kMs), i * 80 * kMs);
    const int64_t between = smoother.next();
    if (i > 0) {
      EXPECT_EQ(between, i * 80 * kMs + 40 * kMs);
    }
  }
}

// Whatever a host stamps: results grow, and stay near the host's stamps.
TEST(PtsSmoother, StaysNearTheHost) {
  std::minstd_rand random(1);
  const auto jitter = [&](int64_t most) {
    return [&random, most](size_t) { return static_cast<int64_t>(random() % (2 * most)) - most; };
  };
  const auto second_half = [](size_t count, int64_t by) {
    return [count, by](size_t i) { return i > count / 2 ? by : 0; };
  };
  const Stamps even = in_steps({{600, 33333}});
  Stamps rare{0};
  for (int i = 0; i < 100; ++i) rare.push_back(rare.back() + 50 * kMs + random() % (3 * kSecond));
  const struct {
    const char* what;
    Stamps stamps;
    int left_out = 0;
  } cases[] = {
      {"a long first interval", in_steps({{1, 184 * kMs}, {300, 33 * kMs}})},
      {"a gap of 2 s", disturbed(even, second_half(600, 2 * kSecond))},
      {"a gap of 5 s", disturbed(even, second_half(600, 5 * kSecond))},
      {"30, 15, 30 pictures a second",
       in_steps({{300, 33333}, {150, 66667}, {300, 33333}, {300, 40000}, {300, 33367}})},
      {"pictures when something changes", rare},
      {"jitter of 12 ms", disturbed(even, jitter(12 * kMs))},
      {"jitter of 60 ms", disturbed(even, jitter(60 * kMs))},
      {"0.3 s back", disturbed(even, second_half(600, -300 * kMs)), 6},
      {"2 s back", disturbed(even, second_half(600, -2 * kSecond)), 57},
      {"equal stamps", in_steps({{100, 40 * kMs}, {20, 1}, {100, 40 * kMs}})},
      {"one picture a second", in_steps({{100, kSecond}})},
      {"the ends of the range", {-INT64_MAX, 0, INT64_MAX, INT64_MAX, 5, -INT64_MAX}, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    zeva::PtsSmoother smoother;
    int left_out = 0;
    int64_t last = INT64_MIN, near_until = c.stamps.front();
    for (const int64_t stamp : c.stamps) {
      const std::optional<int64_t> result = smoother.smooth(stamp);
      if (!result) ++left_out;
      if (!result) continue;
      EXPECT_GT(*result, last);
      EXPECT_LE(std::abs(*result - stamp), 100 * kMs);
      if (std::abs(*result - stamp) <= 10 * kMs) near_until = stamp;
      EXPECT_LE(stamp - near_until, kSecond);
      last = *result;
    }
    EXPECT_EQ(left_out, c.left_out);
  }
}

}  // namespace
