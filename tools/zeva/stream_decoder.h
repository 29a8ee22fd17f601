// Decodes one stream of a movie. Compressed packets wait here until a frame is asked for, since
// they are small; of decoded frames only one is held.
//
// Owns the decoder, the waiting packets and the frame in hand. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "av.h"
#include "status.h"

namespace zeva_tool {

class StreamDecoder {
 public:
  Status open(const AVStream& stream);

  void push(PacketPtr packet);
  void end_input() { input_ended = true; }
  size_t waiting_bytes() const { return queued_bytes; }

  // Tries to have a frame in hand. False: more packets are needed, or finished().
  bool advance();
  bool finished() const { return ended; }

  const AVFrame& frame() const { return *current; }
  int64_t time_us() const { return current_us; }  // in the stream's own time line
  int64_t duration_us() const { return current_duration_us; }
  void release() { holding = false; }

  int64_t damaged_count() const { return damaged; }

 private:
  bool receive();
  bool feed();
  void stamp();

  CodecPtr codec;
  FramePtr current{av_frame_alloc()};
  AVRational time_base{1, 1};
  AVRational frame_rate{0, 1};
  std::deque<PacketPtr> packets;
  size_t queued_bytes = 0;
  bool input_ended = false;
  int drain_attempts = 0;
  bool ended = false;
  bool holding = false;
  int64_t current_us = 0;
  int64_t current_duration_us = 0;
  int64_t next_us = AV_NOPTS_VALUE;
  int64_t damaged = 0;
};

}  // namespace zeva_tool
