// Takes the jitter out of a host's time stamps.
#pragma once

#include <cstdint>

namespace zeva {

// Draws every stamp towards the one predicted from the mean interval, so that a tenth of the jitter
// is left. Used by one thread.
struct PtsSmoother {
  // Microseconds in, microseconds out; also for stamps that jump to the ends of the range.
  int64_t smooth(int64_t pts);

  bool first = true;
  double avg = 0.0;  // mean interval, microseconds
  int64_t last = 0;  // the previous result
  double alpha = 0.01;
  double gain = 0.1;
};

}  // namespace zeva
