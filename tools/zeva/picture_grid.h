// Places pictures on the ticks of a fixed frame rate.
//
// The encoder keeps at most one picture for each tick of 1/fps. A camera's pictures waver around
// their rate, so that two of them may fall to one tick and leave the next one empty; the later one
// then goes to the next tick, as long as it is moved by less than one tick.
#pragma once

#include <cstdint>

namespace zeva_tool {

class PictureGrid {
 public:
  void set_fps(int frames_per_second) { fps = frames_per_second; }

  // Moves `time_us` to its tick; false when the tick is taken, and the picture has no place.
  bool place(int64_t& time_us);

 private:
  int fps = 1;
  int64_t last_tick = -1;
};

}  // namespace zeva_tool
