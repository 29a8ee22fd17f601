// The two elementary streams that a host writes, as demuxed packets.
#pragma once

#include <cstdint>
#include <functional>

#include "av_handles.h"
#include "input_queue.h"
#include "status.h"

namespace zeva {

// Gets every demuxed packet on the thread of `run_demux`, stamped in `time_base` (microseconds);
// `name` is "h264" or "aac", or "tailer" with a null packet at the end. The packet stays the
// caller's. A negative FFmpeg code ends the loop.
using DeliverPacket = int (*)(AVPacket* packet, AVRational time_base, const char* name, void* user);

// Owns the queues and the demuxers. Hosts' threads push into the queues; one worker thread calls
// `open_inputs`, `run_demux` and, last, `clear`; `que_abort` may come from any thread at any time.
class InputContext {
 public:
  InputContext() = default;
  InputContext(const InputContext&) = delete;
  InputContext& operator=(const InputContext&) = delete;

  // Opens a demuxer for each format that is named, audio first. Blocks until the host has written
  // enough to know the streams, has written nothing for 3 s, or `que_abort` was called. One input
  // that cannot be opened is no failure.
  Status open_inputs(const char* audio_format, const char* video_format);

  // Demuxes what was and will be pushed until both inputs have ended. Blocks. Negative when it
  // ended before, by the code of the demuxer or of `deliver`.
  int run_demux(DeliverPacket deliver, void* user);

  // Ends both inputs after what was pushed before.
  void que_abort();

  // Ends and closes both inputs.
  void clear();

  // The first stream of an input, null when the input is not open; worker thread only.
  AVStream* video_stream() const;
  AVStream* audio_stream() const;

  InputQueue video;
  InputQueue audio;

  // Hears, on the thread of `run_demux`, when packets of an input begin to be left out because
  // their time goes back. Set before that thread runs.
  std::function<void(const char* name)> on_left_out;

 private:
  static Status open_input(InputQueue* queue, const char* format, CustomInputPtr* ic);

  // After the queues, which they read.
  CustomInputPtr video_ic;
  CustomInputPtr audio_ic;
};

}  // namespace zeva
