// Makes one picture of the two fields of an interlaced one: the lines of the upper field
// stay as they are, those of the lower one where nothing moves.
//
// Owns a copy and holds the picture before. One thread.
#pragma once

#include "av.h"

namespace zeva_tool {

class Deinterlacer {
 public:
  // The picture is the deinterlacer's, valid until the next call; null when its format cannot be
  // worked on or memory is short. `next`, which may be null, stands in for the picture before the
  // first one.
  const AVFrame* convert(const AVFrame& frame, const AVFrame* next);

  // Sees a picture that is not interlaced, before one that may be.
  void pass(const AVFrame& frame);

 private:
  bool make_room(const AVFrame& frame);

  FramePtr before{av_frame_alloc()};
  FramePtr result;
};

}  // namespace zeva_tool
