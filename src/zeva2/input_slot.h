// What the demux loop knows of one input.
#pragma once

#include <cstdint>

#include "ffmpeg.h"
#include "input_queue.h"
#include "pts_smoother.h"

namespace zeva {

// Borrows everything; used by the demuxing thread.
struct InputSlot {
  // An input that is not open (null `ic`) has ended.
  InputSlot(const char* name, AVFormatContext* ic, InputQueue* queue)
      : name(name), eof(ic == nullptr), ic(ic), queue(queue) {}

  // Gives a demuxed packet the host's stamp: the n-th packet gets the n-th stamp, smoothed.
  void stamp(AVPacket* packet);

  const char* name;
  bool eof;
  AVFormatContext* ic;
  InputQueue* queue;
  int64_t last_pts = 0;  // microseconds
  PtsSmoother smoother;

 private:
  int64_t host_pts();
};

}  // namespace zeva
