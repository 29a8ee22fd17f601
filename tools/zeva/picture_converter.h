// Turns decoded pictures of any size and format into upright BGRA of one size.
//
// The matrix between luma/chroma and RGB is deliberately the scaler's default whatever the movie's
// own is: the library converts back with the same one, so the movie's colours survive exactly, and
// its own colour description stays true for the recording.
#pragma once

#include <cstdint>
#include <vector>

#include "av.h"

namespace zeva_tool {

class PictureConverter {
 public:
  // Quarter turns, clockwise, that make the movie's pictures upright.
  static int turns_of(const AVStream& stream);

  // The size of the upright pictures, and how they are turned.
  void configure(int width, int height, int quarter_turns);

  bool convert(const AVFrame& frame);
  void* data() { return upright.data(); }
  int stride() const { return upright_width * 4; }
  int size_bytes() const { return stride() * upright_height; }

 private:
  bool prepare(const AVFrame& frame);
  void turn();

  SwsPtr scaler;
  int source_width = 0;
  int source_height = 0;
  int source_format = -1;
  int source_range = 0;
  int upright_width = 0;
  int upright_height = 0;
  int turns = 0;
  std::vector<uint32_t> scaled;  // as decoded; used only when pictures are turned
  std::vector<uint32_t> upright;
};

}  // namespace zeva_tool
