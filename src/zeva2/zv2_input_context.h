// The two elementary streams that a host writes, as FFmpeg's packets.
#pragma once

#include <cstdint>
#include <memory>

#include "input_queue.h"
#include "input_signal.h"
#include "input_slot.h"
#include "status.h"

namespace zeva {

// Gets every packet on the thread of `run_demux`, stamped in `time_base` (microseconds);
// `name` is "h264" or "aac", or "tailer" with a null packet at the end. The packet stays the
// caller's. A negative FFmpeg code ends the loop.
using DeliverPacket = int (*)(AVPacket* packet, AVRational time_base, const char* name, void* user);

// Owns the queues and what is known of the streams. Hosts' threads push into the queues; one worker
// thread calls `open_inputs`, `run_demux` and, last, `clear`; `que_abort` may come from any thread
// at any time.
class InputContext {
 public:
  InputContext();
  InputContext(const InputContext&) = delete;
  InputContext& operator=(const InputContext&) = delete;

  // Gets to know each input that is named, "aac" and "h264", both at the same time. Blocks until
  // the host has written enough of each, has written nothing for 3 s, or `que_abort` was called. An
  // input that cannot be known is left out; that is no failure as long as there is the other one.
  Status open_inputs(const char* audio_format, const char* video_format);

  // Hands on what was and will be pushed until both inputs have ended, the earliest packet first;
  // never waits for one input while there is something of the other. Negative when it ended before,
  // by the code of `deliver`.
  int run_demux(DeliverPacket deliver, void* user);

  // Ends both inputs after what was pushed before.
  void que_abort();

  // Ends and closes both inputs.
  void clear();

  // Null when the input is not known; worker thread only.
  AVStream* video_stream() const { return stream_of(video_slot); }
  AVStream* audio_stream() const { return stream_of(audio_slot); }

  InputSignal signal;  // told of changes of the queues, until they are gone

  InputQueue video;
  InputQueue audio;

  // Hears, on the worker thread, of packets and inputs that are left out (zeva/status.h). Set
  // before that thread runs.
  InputSlot::Tell tell;

 private:
  using SlotPtr = std::unique_ptr<InputSlot>;
  static AVStream* stream_of(const SlotPtr& slot);
  void wait_for_streams();
  void tell_left_out();
  void tell_late();
  InputSlot* choose_slot();
  bool have_ended() const;
  void wait();

  // After the queues, which they read.
  SlotPtr video_slot;
  SlotPtr audio_slot;
};

}  // namespace zeva
