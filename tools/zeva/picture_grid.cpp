#include "picture_grid.h"

#include <algorithm>

namespace zeva_tool {

bool PictureGrid::place(int64_t& time_us) {
  int64_t tick = std::max(av_rescale_q(time_us, kMicroseconds, tick_base), last_tick + 1);
  int64_t placed_us = av_rescale_q(tick, tick_base, kMicroseconds);
  if (placed_us - time_us >= av_rescale_q(1, tick_base, kMicroseconds)) return false;
  last_tick = tick;
  time_us = placed_us;
  return true;
}

}  // namespace zeva_tool
