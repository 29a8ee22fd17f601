// Turns decoded sound of any layout, format and rate into interleaved 16-bit PCM of one rate and
// channel count.
#pragma once

#include <cstdint>
#include <vector>

#include "av.h"

namespace zeva_tool {

class SoundConverter {
 public:
  void configure(int sample_rate, int channels);

  bool convert(const AVFrame& frame);
  void leave_out(int64_t samples);  // of the beginning; none for a number below 1
  void make_silence(int64_t samples);

  void* data() { return pcm.data(); }
  int size_bytes() const { return static_cast<int>(pcm.size() * sizeof(int16_t)); }
  int64_t samples() const { return static_cast<int64_t>(pcm.size()) / channels; }

 private:
  bool prepare(const AVFrame& frame);

  SwrPtr resampler;
  int rate = 48000;
  int channels = 2;
  int64_t source_layout = 0;
  int source_format = -1;
  int source_rate = 0;
  std::vector<int16_t> pcm;
};

}  // namespace zeva_tool
