// The follower against a simulated network: 25 pictures a second into a queue that drains at the
// network's pace.
#include "rate_follower.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>

namespace {

constexpr int64_t kFull = 3000000;
constexpr int64_t kFloor = 300000;
constexpr int kPictures = 25;  // a second

struct Simulated {
  int64_t rate_at_end = 0;
  int64_t lowest = kFull;
  int64_t mean = 0;              // of the last half
  int64_t longest_queue_us = 0;  // of the last half
  int dropped = 0;               // pictures
  int changes = 0;               // of the last half
};

// `capacity` gives bits per second at a time in seconds. The stream leaves pictures out while 3 s
// of them wait. The encoder comes to a wanted rate within a second, as its buffer allows.
Simulated simulate(zeva::RateFollower& follower, int from, int seconds,
                   const std::function<double(double)>& capacity) {
  Simulated told;
  std::deque<double> queue;  // bits of each picture
  double made = kFull, sent = 0;
  int64_t last = 0;
  const int steps = seconds * kPictures;
  for (int n = 0; n < steps; ++n) {
    const double at = from + double(n) / kPictures;
    const auto queued_us = static_cast<int64_t>(queue.size()) * 1000000 / kPictures;
    const bool dropping = queued_us >= 3000000;
    const int64_t rate =
        follower.follow({queued_us, dropping}, 1000000000 + static_cast<int64_t>(at * 1e6));
    made += (static_cast<double>(rate) - made) / kPictures;
    told.dropped += dropping ? 1 : 0;
    if (!dropping) queue.push_back(made / kPictures);
    for (sent += capacity(at) / kPictures; !queue.empty() && sent >= queue.front();) {
      sent -= queue.front();
      queue.pop_front();
    }
    if (queue.empty()) sent = 0;
    told.lowest = std::min(told.lowest, rate);
    if (n >= steps / 2) {
      told.changes += rate != last ? 1 : 0;
      told.mean += rate / (steps - steps / 2);
      told.longest_queue_us = std::max(told.longest_queue_us, queued_us);
    }
    last = told.rate_at_end = rate;
  }
  return told;
}

TEST(RateFollower, FindsTheRateThatTheNetworkCarries) {
  const auto jitter = [](double mean) {  // carries nothing for 0.3 s of every 2 s
    return [mean](double at) { return std::fmod(at, 2) < 0.3 ? 0 : mean / 0.85; };
  };
  const struct {
    const char* name;
    std::function<double(double)> capacity;
    int64_t least_mean, most_mean;
    int most_changes;
    int64_t longest_queue_us;
  } cases[] = {
      {"plenty", [](double) { return 2.0 * kFull; }, kFull, kFull, 1, 100000},
      {"just enough", [](double) { return 1.01 * kFull; }, kFull, kFull, 1, 100000},
      {"uneven, but enough", jitter(1.5 * kFull), kFull, kFull, 1, 500000},
      {"a half", [](double) { return 0.5 * kFull; }, 1200000, 1500000, 40, 1000000},
      {"a third, uneven", jitter(0.33 * kFull), 700000, 990000, 40, 1000000},
      {"a fifth", [](double) { return 0.2 * kFull; }, 450000, 600000, 40, 1000000},
      {"nothing", [](double) { return 0.0; }, kFloor, kFloor, 1, 10000000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    zeva::RateFollower follower(kFloor, kFull);
    const Simulated found = simulate(follower, 0, 240, c.capacity);
    EXPECT_GE(found.mean, c.least_mean);
    EXPECT_LE(found.mean, c.most_mean);
    EXPECT_LE(found.changes, c.most_changes);
    EXPECT_LE(found.longest_queue_us, c.longest_queue_us);
    EXPECT_GE(found.lowest, kFloor);
  }
}

TEST(RateFollower, ReactsAndComesBack) {
  zeva::RateFollower follower(kFloor, kFull);
  const auto full = [](double) { return 1.5 * kFull; };
  EXPECT_EQ(simulate(follower, 0, 60, full).lowest, kFull);
  const Simulated halved = simulate(follower, 60, 10, [](double) { return 0.5 * kFull; });
  EXPECT_LE(halved.rate_at_end, kFull / 2);
  EXPECT_EQ(halved.dropped, 0) << "before the stream had to leave out pictures";
  simulate(follower, 70, 120, [](double) { return 0.5 * kFull; });
  EXPECT_EQ(simulate(follower, 190, 90, full).rate_at_end, kFull);
}

TEST(RateFollower, StaysWithinItsBounds) {
  zeva::RateFollower fixed(kFull, kFull), above(2 * kFull, kFull);
  for (zeva::RateFollower* follower : {&fixed, &above}) {
    const Simulated told = simulate(*follower, 0, 20, [](double) { return 0.0; });
    EXPECT_EQ(told.lowest, kFull);
  }
  zeva::RateFollower small(1, 5);
  EXPECT_EQ(simulate(small, 0, 60, [](double) { return 0.0; }).lowest, 1);
  EXPECT_EQ(simulate(small, 60, 60, [](double) { return 1e9; }).rate_at_end, 5);
}

}  // namespace
