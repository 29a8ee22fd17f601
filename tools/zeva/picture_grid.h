// Places pictures on the ticks of a fixed frame rate.
//
// The encoder keeps at most one picture for each tick of a fixed rate. A camera's pictures waver
// around their rate, so that two of them may fall to one tick and leave the next one empty; the
// later one then goes to the next tick, as long as it is moved by less than one tick.
#pragma once

#include <cstdint>

#include "av.h"

namespace zeva_tool {

class PictureGrid {
 public:
  void set_rate(AVRational pictures_per_second) { tick_base = av_inv_q(pictures_per_second); }

  // Moves `time_us` to its tick; false when the tick is taken, and the picture has no place.
  bool place(int64_t& time_us);

 private:
  AVRational tick_base{1, 1};
  int64_t last_tick = -1;
};

}  // namespace zeva_tool
