// The times of the packets that one muxer gets.
#pragma once

#include <cstdint>
#include <vector>

#include "ffmpeg.h"

namespace zeva {

// Where a container cannot say times before 0, all of the movie is moved up by what the encoders of
// sound begin before it (initial_padding): FFmpeg would move everything from the first such packet
// on, but not what it wrote before. Used by one thread at a time.
class MovieTimes {
 public:
  // Before the first packet.
  void begin(AVFormatContext& oc);

  // Raises decoding times of reordered pictures to where they can be. False when the packet is
  // shown before that, and is to be left out.
  bool fit(const AVFormatContext& oc, AVPacket& packet);

  // True while nothing is to be written, as a packet may come that lies before all that came so
  // far. FLV takes nothing before its first tag, so each stream's first packet is waited for, but
  // no longer than five seconds of movie time: a stream may be silent from the beginning on.
  bool is_starting() const { return starting; }

  // The packet is written. A damaged index has packets of any stream and time, which count not.
  void note(const AVFormatContext& oc, const AVPacket& packet);

  // Movie time at which the last packet ends, in microseconds.
  int64_t end_us() const { return latest_us; }

 private:
  bool still_starts(int64_t dts_us);

  bool floor_is_zero = false;
  bool starting = false;
  int64_t first_us = INT64_MIN;     // decoding time
  std::vector<int64_t> last_times;  // decoding times of the streams
  int64_t latest_us = 0;
};

}  // namespace zeva
