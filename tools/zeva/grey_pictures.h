// Gives pictures of luma alone the chroma of grey, so that their range counts: swscale takes every
// picture without chroma for one of the full range.
#pragma once

#include "av.h"

namespace zeva_tool {

class GreyPictures {
 public:
  // The format with chroma; the same for pictures that are not luma alone.
  static AVPixelFormat format_with_chroma(AVPixelFormat format);

  // The luma is the frame's own. Valid until the next call or as long as `frame`; null when memory
  // is short.
  const AVFrame* with_chroma(const AVFrame& frame);

 private:
  bool make_chroma(const AVFrame& frame, AVPixelFormat format);

  FramePtr chroma;  // a picture of which only the chroma is used
  FramePtr view{av_frame_alloc()};
};

}  // namespace zeva_tool
