// Passes to a snapshot each packet that FFmpeg's muxer is given, and the position of its bytes.
#pragma once

#include "ffmpeg.h"

namespace zeva {

class Snapshot;

// Replaces functions in the muxer's description, which FFmpeg 4 allows; from FFmpeg 5 on
// descriptions are constant. No other file depends on this. All functions may be called from any
// thread. A snapshot is called back between `add` and `remove` only, on the thread that drives the
// muxer; the caller of `remove` ensures that no muxer call is under way.
class MuxerHooks {
 public:
  static void add(Snapshot& snapshot);
  static void remove(Snapshot& snapshot);

  // Binds the snapshot to `oc`, whose `opaque` then belongs to it. False, with a log line, when the
  // muxer's own functions are not known.
  [[nodiscard]] static bool install(AVFormatContext& oc, Snapshot& snapshot);
};

}  // namespace zeva
