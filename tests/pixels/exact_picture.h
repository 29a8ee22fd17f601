// Pictures in buffers that tell of every byte written beside them, and the exact result of a
// conversion, computed without hurry in double precision.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "av_handles.h"
#include "picture_format.h"

// Rows have guard bytes between them where `padding` asks for them; `upside_down` gives negative
// strides; `offset` moves the first byte from any alignment. The heap ends where the picture ends,
// for the address sanitizer.
struct Layout {
  int padding = 0;
  bool upside_down = false;
  int offset = 0;
};

class GuardedPicture {
 public:
  explicit GuardedPicture(const zeva::PictureFormat& format, const Layout& layout = {});

  // Values as they are in the format: of its own depth and range.
  void fill_flat(const std::array<int, 3>& values);
  void fill_random(std::minstd_rand& random);

  // A component's samples, row after row.
  std::vector<uint16_t> samples(int component) const;
  void set_samples(int component, const std::vector<uint16_t>& values);
  int width_of(int component) const;
  int height_of(int component) const;

  bool guards_are_intact() const;

  AVFrame& frame() { return *picture; }
  const AVFrame& frame() const { return *picture; }
  const zeva::PictureFormat& format() const { return form; }

 private:
  zeva::PictureFormat form;
  const AVPixFmtDescriptor* description;
  zeva::FramePtr picture;
  std::vector<std::vector<uint8_t>> planes;
};

// The code values, not rounded, that `in` has as a picture of `to`'s pixel format, matrix and range
// in the same size. Chroma is spread over the pixels that share it, and the mean of these.
std::array<std::vector<double>, 3> exact_conversion(const GuardedPicture& in,
                                                    const zeva::PictureFormat& to);

// Both 0 to 1 for R, G and B: the code values of that colour.
std::array<int, 3> code_values(const std::array<double, 3>& rgb, const zeva::PictureFormat& format);

// The largest distance of a sample of `picture` from the exact one.
double largest_error(const GuardedPicture& picture,
                     const std::array<std::vector<double>, 3>& exact);
