// The times of pictures on their way through an encoder.
#pragma once

#include <cstdint>
#include <deque>

#include "ffmpeg.h"

namespace zeva {

// How a stream of pictures is timed. Fixed when the stream is set up.
struct PictureTiming {
  AVRational units{0, 1};     // of the pictures' and packets' times
  AVRational interval{0, 1};  // from picture to picture at the mean rate
  bool variable = false;      // every picture keeps its own time
  bool counted = false;       // the encoder gets numbers instead of times
};

// Keeps each picture's own time and length at a variable rate, while the encoder holds it. Used by
// the one thread that encodes.
class PictureTimes {
 public:
  explicit PictureTimes(const PictureTiming& timing);

  // Notes a picture that begins at `pts` and lasts `duration` (0: unknown), in the timing's units.
  // The time that the encoder is to be given for it.
  int64_t enter(int64_t pts, int64_t duration);

  // Gives an encoder's packet the times of its picture. A picture lasts until the next one; while
  // there is none, as long as the host said, or else as long as the one before it.
  void stamp(AVPacket& packet);

 private:
  struct Picture {
    int64_t key = 0;  // what the encoder was given
    int64_t pts = 0;
    int64_t duration = 0;
  };

  int64_t time_of(int64_t key) const;

  const PictureTiming timing;
  const int64_t mean_interval;  // in the timing's units
  const int64_t longest_guess;
  std::deque<Picture> pictures;  // in the encoder; the oldest one that may still come out first
  int64_t next_number = 0;
};

}  // namespace zeva
