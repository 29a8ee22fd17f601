// Turns decoded pictures of any size and format into upright BGRA of one size, of 8 or 16 bits a
// component.
//
// The matrix between luma/chroma and RGB is deliberately the scaler's default whatever the movie's
// own is: the library converts back with the same one, so the movie's colours survive exactly, and
// its own colour description stays true for the recording.
#pragma once

#include "av.h"

namespace zeva_tool {

class PictureConverter {
 public:
  // Quarter turns, clockwise, that make the movie's pictures upright.
  static int turns_of(const AVStream& stream);

  // The size and format (BGRA or BGRA64) of the upright pictures, and how they are turned.
  void configure(int width, int height, AVPixelFormat format, int quarter_turns);

  // The upright picture, which is the converter's and lasts until the next call; null when there is
  // none.
  AVFrame* convert(const AVFrame& frame);

 private:
  bool prepare(const AVFrame& frame);
  bool make_frame(FramePtr& frame, int width, int height);

  SwsPtr scaler;
  int source_width = 0;
  int source_height = 0;
  int source_format = -1;
  int source_range = 0;
  int upright_width = 0;
  int upright_height = 0;
  AVPixelFormat format = AV_PIX_FMT_BGRA;
  int turns = 0;
  FramePtr scaled;  // as decoded; used only when pictures are turned
  FramePtr upright;
};

}  // namespace zeva_tool
