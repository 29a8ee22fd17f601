// Tells a snapshot what FFmpeg's muxer is given, and where the bytes of it go.
#pragma once

#include "ffmpeg.h"

namespace zeva {

class Snapshot;

// The only place that knows how this is found out: by functions of ours in the muxer's description.
// FFmpeg 4 lets them be replaced; from FFmpeg 5 on descriptions are constant. All functions may be
// called from any thread. A snapshot is called back, on the thread that drives the muxer, between
// `add` and `remove` only; who calls `remove` sees to it that no muxer call is under way.
class MuxerHooks {
 public:
  static void add(Snapshot& snapshot);
  static void remove(Snapshot& snapshot);

  // Binds the snapshot to `oc`, whose `opaque` then belongs to it. False, with a log line, when the
  // muxer's own functions are not known.
  [[nodiscard]] static bool install(AVFormatContext& oc, Snapshot& snapshot);
};

}  // namespace zeva
