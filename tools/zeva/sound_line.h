// Where the samples of a movie's sound belong on the time line of a recording.
//
// The encoder counts samples: what is missing must be filled with silence, and what is too much
// left out, or sound and pictures part. 40 ms are corrected at once. Less may be the wavering of
// time stamps, and is corrected when all the sound of 0.2 s was off by more than 4 ms to the
// same side, by the least of that.
#pragma once

#include <cstdint>

namespace zeva_tool {

class SoundLine {
 public:
  void set_rate(int samples_per_second) { rate = samples_per_second; }

  // How many samples of silence belong before a piece of the time `time_us`; negative: how many to
  // leave out of its beginning.
  int64_t correction(int64_t time_us);

  // So many samples follow.
  void add(int64_t samples) { given += samples; }
  int64_t end_us() const;

 private:
  void begin_watch(int64_t time_us);

  int rate = 48000;
  int64_t given = 0;
  // Since watched_from_us all pieces lay off by at least `nearest_us` to one side.
  int64_t watched_from_us = -1;
  int64_t nearest_us = 0;
};

}  // namespace zeva_tool
