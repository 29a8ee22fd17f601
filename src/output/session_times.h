// The times of a live stream whose connection came about again.
#pragma once

#include <cstdint>
#include <vector>

#include "ffmpeg.h"

namespace zeva {

// A connection that begins in mid-recording begins with a key picture, at time 0. Writer thread.
class SessionTimes {
 public:
  struct Stream {
    AVRational time_base;
    bool pictures;
  };

  // `anew`: the connection does not carry the recording from its beginning on.
  void begin(std::vector<Stream> of_streams, bool anew);

  // Moves a packet, in its stream's time base, to the connection's time. False when it is to be
  // left out, since it lies before the beginning.
  bool fit(AVPacket& packet);

  // True until the packet came with which the connection begins.
  bool is_waiting() const { return waiting; }

 private:
  bool begins_with(const AVPacket& packet) const;
  static int64_t shown_at(const AVPacket& packet);

  std::vector<Stream> streams;
  bool has_pictures = false;
  bool moved = false;
  bool waiting = false;
  AVRational origin_base{1, 1};
  int64_t origin = 0;       // decoding time of the first packet, in origin_base
  int64_t first_shown = 0;  // its presentation time
  int first_stream = 0;
};

}  // namespace zeva
