#include "drift_meter.h"

#include <cstdlib>

namespace ZV {

int64_t DriftMeter::measure(int64_t error, int64_t length) {
  if (std::abs(error) <= tolerance) {
    restart();
    return 0;
  }
  const bool same_side = watched > 0 && (error > 0) == (smallest > 0);
  if (!same_side) restart();
  if (watched == 0 || std::abs(error) < std::abs(smallest)) smallest = error;
  watched += length;
  if (watched < one_second) return 0;
  restart();
  return smallest;
}

}  // namespace ZV
