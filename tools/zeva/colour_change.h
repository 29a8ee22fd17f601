// Changes colours where more than a matrix and a range lies between: high dynamic range into
// BT.709 and back, wide primaries into those of BT.709, and matrices that players do not know into
// one that they do.
//
// Owns its tables. Used by one thread at a time, which has a second one help.
#pragma once

#include <array>
#include <vector>

#include "colours.h"

namespace zeva_tool {

class ColourChange {
 public:
  struct Kind {
    Colours colours;
    int depth = 8;
  };

  // `peak` is the source's brightest light, in units of reference white.
  ColourChange(const Kind& from, const Kind& to, double peak);

  // Both frames have planes of samples, as wide and as high in chroma, of the depths above.
  void apply(const AVFrame& from, AVFrame& to) const;

 private:
  using Vector = std::array<float, 3>;
  using Rows = std::array<Vector, 3>;
  static constexpr int kBlock = 64;  // pixels that are changed at once
  using Block = std::array<std::array<float, kBlock>, 3>;

  void make_curves();
  template <typename In, typename Out>
  void convert(const AVFrame& from, AVFrame& to) const;
  template <typename In, typename Out>
  void convert_rows(const AVFrame& from, AVFrame& to, int begin, int end) const;
  template <typename In, typename Out>
  void convert_row(const AVFrame& from, AVFrame& to, int row) const;
  template <typename In>
  Block changed_line(const Block& chroma, const In* luma, int count) const;
  template <typename Out>
  void put_luma(const Block& rgb, Out* luma, int count) const;
  template <typename Out>
  void put_chroma(const Vector& rgb, Out& u, Out& v) const;
  Vector stored_chroma(float u, float v) const;
  void change(Block& rgb) const;
  static void brighten(Block& rgb, const std::vector<float>& gain_by_luminance);
  void fit_709(Block& rgb) const;

  const Kind source;
  const Kind target;
  const bool by_light;     // by way of light, or in stored values only
  const bool other_light;  // of another curve or primaries
  const bool rolls_off;    // where the target cannot show it
  const float peak;
  Vector source_luma{};  // what one code of luma adds to what is stored
  Rows source_chroma{};  // and one of chroma
  Vector source_black{};
  Rows to_rgb{};     // of light: the source's components into its red, green and blue
  Rows to_target{};  // of light: into the target's primaries
  Rows to_codes{};
  std::vector<float> curve;          // from stored values to light
  std::vector<float> system;         // gain of a display of hybrid log-gamma, by luminance
  std::vector<float> no_system;      // and what takes it back
  std::vector<float> inverse_curve;  // from light to stored values
};

}  // namespace zeva_tool
