// The bit rate that a network can carry.
#pragma once

#include <cstdint>
#include <optional>

namespace zeva {

// Finds the bit rate for an encoder from the queues of the streams it feeds. Used by one thread.
class RateFollower {
 public:
  struct Load {
    int64_t queued_us = 0;  // of the slowest live stream
    bool dropping = false;  // one of them leaves out pictures
  };

  // Bits per second. `full_rate` is where it begins, and the highest.
  RateFollower(int64_t floor, int64_t full_rate);

  // The rate from `now_us` on. Times do not go back.
  int64_t follow(const Load& load, int64_t now_us);

 private:
  struct Sample {
    int64_t queued_us = 0;
    int64_t at_us = 0;
  };

  void lower(const Load& load, int64_t now_us);
  void raise(int64_t now_us);

  const int64_t floor;
  const int64_t full_rate;
  int64_t rate;
  Sample begun;                          // when the queue was last drained, or the rate last judged
  int64_t next_step_us = INT64_MIN;      // no step down before
  std::optional<int64_t> calm_since_us;  // the queue was drained, and not congested since
  int64_t patience_us;                   // so long it must be calm before the rate goes up
  bool raised_last = false;              // the last step was one up
};

}  // namespace zeva
