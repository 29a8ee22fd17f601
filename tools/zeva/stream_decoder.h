// Decodes one stream of a movie. Compressed packets wait here until a frame is asked for, since
// they are small; of decoded frames only the one in hand is held, and of pictures the next one too,
// as its time tells how long the one in hand lasts.
//
// Owns the decoder, the waiting packets and the frames. One thread.
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

  const AVFrame& frame() const { return *in_hand.frame; }
  // Of pictures, the one after it; null behind the last one.
  const AVFrame* next_frame() const { return has_upcoming ? upcoming.frame.get() : nullptr; }
  int64_t time_us() const { return in_hand.time_us; }  // in the stream's own time line
  int64_t duration_us() const { return in_hand.duration_us; }
  void release() { holding = false; }

  int64_t damaged_count() const { return damaged; }

 private:
  struct Decoded {
    FramePtr frame{av_frame_alloc()};
    int64_t time_us = 0;
    int64_t duration_us = 0;
  };
  bool receive();
  bool feed();
  void finish();
  void take_in();
  void stamp(Decoded& decoded);

  CodecPtr codec;
  bool pictures = false;
  AVRational time_base{1, 1};
  AVRational frame_rate{0, 1};
  int64_t stream_end_us = AV_NOPTS_VALUE;
  std::deque<PacketPtr> packets;
  size_t queued_bytes = 0;
  bool input_ended = false;
  int drain_attempts = 0;
  bool ended = false;
  Decoded in_hand;  // valid while holding
  bool holding = false;
  Decoded upcoming;  // valid while has_upcoming
  bool has_upcoming = false;
  int64_t next_us = AV_NOPTS_VALUE;
  int64_t damaged = 0;
};

}  // namespace zeva_tool
