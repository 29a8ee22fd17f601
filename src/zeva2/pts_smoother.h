// Takes the jitter out of a host's time stamps.
#pragma once

#include <cstdint>
#include <optional>

namespace zeva {

// Draws every stamp towards the one that the mean interval predicts, so that a tenth of its jitter
// is left. The mean is that of the host's own intervals: a prediction fed by its results would run
// away from a host that changes its rate. A stamp that is off by more than jitter is a step, and is
// taken over as it is, with a new mean; so is one when the line has been kMaxOffsetUs away from the
// host's for almost a second. Results strictly grow and are never more than kMaxDistanceUs from the
// host's stamps. Microseconds throughout, any number. Used by one thread.
class PtsSmoother {
 public:
  static constexpr int64_t kMaxDistanceUs = 100000;
  static constexpr int64_t kMaxOffsetUs = 10000;

  // Nothing for a stamp that goes back so far that no result can be near it and grow.
  std::optional<int64_t> smooth(int64_t pts);

  // For a packet without a stamp: one mean interval on.
  int64_t next();

 private:
  int64_t follow(int64_t pts);
  void learn(int64_t pts);
  bool is_off_for_too_long(int64_t pts, int64_t result);

  double mean = 0;        // of the host's intervals
  int64_t intervals = 0;  // that the mean was made of
  bool first = true;
  int64_t last_pts = 0;
  int unstamped = 0;  // packets since `last_pts`
  int64_t last_result = 0;
  std::optional<int64_t> off_since;
};

}  // namespace zeva
