// The test signals: a moving colour pattern and a rising tone.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// Draws picture number `i` into a writable YUV 4:2:0 frame.
void draw_colour_pattern(AVFrame* frame, int i);

// A tone from 0 Hz that rises by 110 Hz a second.
class RisingTone {
 public:
  void restart(int sample_rate);
  // Fills the frame's first plane with interleaved signed 16-bit samples of `channels` channels.
  void fill(AVFrame* frame, int channels);

 private:
  float t = 0;       // phase, radians
  float tincr = 0;   // phase step a sample
  float tincr2 = 0;  // growth of the step a sample
};

}  // namespace zeva
