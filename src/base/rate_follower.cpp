// A queue that holds half a second grows faster than chance explains, and how fast tells which
// share of the stream the network carried meanwhile: the rate goes down to that share, but by a
// tenth at least and a third at most. The next step down waits until the pictures that were queued
// are gone, since only those after them are smaller; a queue that shrinks by then is left to drain.
// Once it has been calm for three seconds, the rate goes up by a tenth. A step up that filled the
// queue again has found the network's limit: the next one waits twice as long, up to a minute,
// until one holds.
#include "rate_follower.h"

#include <algorithm>

namespace zeva {
namespace {

constexpr int64_t kCongestedUs = 500000;
constexpr int64_t kDrainedUs = 200000;
constexpr int64_t kStepUs = 500000;  // until an encoder makes smaller pictures
constexpr int64_t kLeastPatienceUs = 3000000;
constexpr int64_t kMostPatienceUs = 60000000;

}  // namespace

RateFollower::RateFollower(int64_t floor, int64_t full_rate)
    : floor(std::min(floor, full_rate)),
      full_rate(full_rate),
      rate(full_rate),
      patience_us(kLeastPatienceUs) {}

int64_t RateFollower::follow(const Load& load, int64_t now_us) {
  const bool drained = load.queued_us < kDrainedUs && !load.dropping;
  if (drained) begun = {load.queued_us, now_us};
  if (load.dropping || load.queued_us > kCongestedUs) {
    calm_since_us.reset();
    lower(load, now_us);
  } else if (drained && !calm_since_us) {
    calm_since_us = now_us;
  } else if (drained && now_us - *calm_since_us >= patience_us) {
    raise(now_us);
  }
  return rate;
}

void RateFollower::lower(const Load& load, int64_t now_us) {
  if (now_us < next_step_us) return;
  const int64_t growth = load.queued_us - begun.queued_us;
  const int64_t elapsed = std::max<int64_t>(now_us - begun.at_us, 1);
  begun = {load.queued_us, now_us};
  next_step_us = now_us + kStepUs + load.queued_us;
  if (growth < 0 && !load.dropping) return;
  if (raised_last) patience_us = std::min(2 * patience_us, kMostPatienceUs);
  raised_last = false;
  const int64_t percent = load.dropping ? 0 : 100 - std::min<int64_t>(100 * growth / elapsed, 100);
  rate = std::max(floor, rate * std::clamp<int64_t>(percent, 67, 90) / 100);
}

void RateFollower::raise(int64_t now_us) {
  if (rate == full_rate) return;
  if (raised_last) patience_us = kLeastPatienceUs;
  raised_last = true;
  rate = std::min(full_rate, rate + std::max<int64_t>(rate / 10, 1));
  calm_since_us = now_us;
}

}  // namespace zeva
