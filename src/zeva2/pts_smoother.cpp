#include "pts_smoother.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "saturating.h"

namespace zeva {
namespace {

constexpr double kGain = 0.1;    // of the jitter that is left
constexpr double kAlpha = 0.01;  // of a new interval in the mean
// Less than what may be off, by as much as the line may be away already.
constexpr int64_t kJitterUs = 80000;
constexpr int64_t kLongestOffUs = 900000;
// Two times that are closer are one in the units of FLV and Matroska.
constexpr int64_t kShortestIntervalUs = 1000;

int64_t distance(int64_t a, int64_t b) { return saturating_sub(std::max(a, b), std::min(a, b)); }

}  // namespace

std::optional<int64_t> PtsSmoother::smooth(int64_t pts) {
  int64_t result = first ? pts : follow(pts);
  if (!first) result = std::max(result, saturating_add(last_result, kShortestIntervalUs));
  if (distance(result, pts) > kMaxDistanceUs || (!first && result <= last_result)) {
    return std::nullopt;
  }
  if (!first) learn(pts);
  first = false;
  last_pts = pts;
  last_result = result;
  return result;
}

// A stamp that is a step begins a new mean.
int64_t PtsSmoother::follow(int64_t pts) {
  if (intervals == 0) return pts;
  const int64_t predicted = saturating_add(last_result, saturating_trunc(mean + 0.5));
  const auto off = static_cast<double>(saturating_sub(pts, predicted));
  const int64_t result = saturating_add(predicted, saturating_trunc(off * kGain));
  if (std::abs(off) <= kJitterUs && !is_off_for_too_long(pts, result)) return result;
  intervals = -1;
  off_since.reset();
  return pts;
}

bool PtsSmoother::is_off_for_too_long(int64_t pts, int64_t result) {
  if (distance(result, pts) <= kMaxOffsetUs) {
    off_since.reset();
    return false;
  }
  if (!off_since) off_since = pts;
  return distance(pts, *off_since) > kLongestOffUs;
}

void PtsSmoother::learn(int64_t pts) {
  const double packets = 1.0 + std::exchange(unstamped, 0);
  const auto interval = static_cast<double>(saturating_sub(pts, last_pts)) / packets;
  if (++intervals < 1) return;  // the step itself is no interval
  const double share = std::max(kAlpha, 1.0 / static_cast<double>(intervals));
  mean += share * (interval - mean);
}

int64_t PtsSmoother::next() {
  const int64_t step =
      std::max(intervals > 0 ? saturating_trunc(mean + 0.5) : 0, kShortestIntervalUs);
  last_result = saturating_add(last_result, step);
  if (first) last_pts = last_result;
  if (!first) ++unstamped;
  first = false;
  return last_result;
}

}  // namespace zeva
