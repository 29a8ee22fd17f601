#include "pts_smoother.h"

#include "saturating.h"

namespace zeva {

int64_t PtsSmoother::smooth(int64_t pts) {
  if (!first) {
    const auto interval = static_cast<double>(saturating_sub(pts, last));
    if (avg == 0.0) {
      avg = interval;
    } else {
      avg = (1.0 - alpha) * avg + alpha * interval;
      const int64_t predicted = saturating_add(last, saturating_trunc(avg + 0.5));
      const auto jitter = static_cast<double>(saturating_sub(pts, predicted));
      pts = saturating_add(predicted, saturating_trunc(jitter * gain));
    }
  }
  first = false;
  last = pts;
  return pts;
}

}  // namespace zeva
