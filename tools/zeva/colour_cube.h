// Changes colours by a table, where no matrix does: high dynamic range into BT.709, wide primaries
// into those of BT.709, and matrices that players do not know into one that they do.
//
// Owns the table. One thread.
#pragma once

#include <vector>

#include "colours.h"

namespace zeva_tool {

class ColourCube {
 public:
  struct Kind {
    Colours colours;
    int depth = 8;
  };

  // `peak` is the source's brightest light, in units of reference white.
  ColourCube(const Kind& from, const Kind& to, double peak);

  // Both frames have planes of samples, as wide and as high in chroma, of the depths above.
  void apply(const AVFrame& from, AVFrame& to) const;

 private:
  struct Place;
  template <typename In, typename Out>
  void convert(const AVFrame& from, AVFrame& to) const;
  template <typename In, typename Out>
  void convert_row(const AVFrame& from, AVFrame& to, int row) const;
  Place place_of(unsigned u, unsigned v) const;
  float luma_at(const Place& place, unsigned y) const;
  template <typename Out>
  void put_chroma(const Place& place, unsigned y, Out& u, Out& v) const;

  const Kind source;
  const Kind target;
  std::vector<float> lumas;    // [u][v][y]
  std::vector<float> chromas;  // [u][v][y][2]
};

}  // namespace zeva_tool
