// What the demux loop knows of one input.
#pragma once

#include <cstdint>
#include <optional>

#include "ffmpeg.h"
#include "input_queue.h"
#include "pts_smoother.h"

namespace zeva {

// Borrows everything; used by the demuxing thread.
struct InputSlot {
  // An input that is not open (null `ic`) has ended.
  InputSlot(const char* name, AVFormatContext* ic, InputQueue* queue)
      : name(name), eof(ic == nullptr), ic(ic), queue(queue) {}

  // Gives a demuxed packet the host's stamp: the n-th packet gets the n-th stamp, smoothed. False
  // for a packet that is to be left out.
  bool stamp(AVPacket* packet);

  const char* name;
  bool eof;
  AVFormatContext* ic;
  InputQueue* queue;
  int64_t last_pts = 0;  // microseconds
  PtsSmoother smoother;
  bool leaving_out = false;  // the last packet was left out; told once, not for every packet

 private:
  std::optional<int64_t> next_time();
};

}  // namespace zeva
