// Luma and chroma become what they were made of by a matrix, and this becomes light by a table of
// the source's curve. Light is changed by matrices, rolled off where the target cannot show it, and
// put back by a table of the target's curve; that one is looked up by a root, which is fine in the
// dark as the eye is. Every luma sample goes that way with the chroma sample it shares;
// chroma is made of the mean of their red, green and blue. A table of all colours would be faster,
// and off where colours are cut off at the edge of what the target can show.
#include "colour_change.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "colour_math.h"

namespace zeva_tool {
namespace {

constexpr int kSteps = 4095;    // few enough for the processor's first cache
constexpr float kKnee = 0.75F;  // of reference white; below, light stays as it is

template <typename Sample>
Sample* line_of(const AVFrame& frame, int plane, int y) {
  return reinterpret_cast<Sample*>(frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane]);
}

inline float look_up(const float* table, float place) {
  return table[static_cast<int>(std::min(std::max(place, 0.0F), 1.0F) * kSteps + 0.5F)];
}

template <typename Out>
Out rounded(float value, float top) {
  return static_cast<Out>(std::min(std::max(value, 0.0F), top) + 0.5F);
}

template <typename Row>
float dot(const Row& row, const Row& v) {
  return row[0] * v[0] + row[1] * v[1] + row[2] * v[2];
}

template <typename Rows>
void copy(const Matrix& m, Rows& rows) {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) rows[i][j] = static_cast<float>(m[i][j]);
  }
}

}  // namespace

ColourChange::ColourChange(const Kind& from, const Kind& to, double source_peak)
    : source(from),
      target(to),
      by_light(from.colours.transfer != to.colours.transfer ||
               from.colours.primaries != to.colours.primaries ||
               from.colours.matrix != AVCOL_SPC_YCGCO),
      into_709(from.colours.transfer != to.colours.transfer ||
               from.colours.primaries != to.colours.primaries),
      peak(static_cast<float>(source_peak)) {
  bool full = from.colours.range == AVCOL_RANGE_JPEG;
  double one = 1 << (from.depth - 8);
  double top = (1 << from.depth) - 1;
  const Triple unit{full ? 1 / top : 1 / (219 * one), full ? 1 / top : 1 / (224 * one), 0};
  const Triple zero{full ? 0 : 16 * one, 128 * one, 128 * one};
  const Matrix stored = stored_by(from.colours);
  for (int i = 0; i < 3; ++i) {
    source_luma[i] = static_cast<float>(stored[i][0] * unit[0]);
    source_chroma[i] = {0, static_cast<float>(stored[i][1] * unit[1]),
                        static_cast<float>(stored[i][2] * unit[1])};
    source_black[i] = static_cast<float>(-stored[i][0] * unit[0] * zero[0]);
  }
  copy(rgb_light_by(from.colours.matrix), to_rgb);
  copy(primaries_change(from.colours.primaries, to.colours.primaries), to_target);
  copy(luma_chroma_by(to.colours.matrix), to_codes);
  float scale = static_cast<float>(1 << (to.depth - 8));
  for (int i = 0; i < 3; ++i) {
    for (float& value : to_codes[i]) value *= scale * (i == 0 ? 219.0F : 224.0F);
  }
  make_curves();
}

void ColourChange::make_curves() {
  if (!by_light) return;
  bool hlg = source.colours.transfer == AVCOL_TRC_ARIB_STD_B67;
  double whites = into_709 ? whites_of(source.colours.transfer) : 1;
  for (int i = 0; i <= kSteps; ++i) {
    double part = static_cast<double>(i) / kSteps;
    curve.push_back(static_cast<float>(light_of(source.colours, part) * (hlg ? 1 : whites)));
    inverse_curve.push_back(static_cast<float>(
        stored_of(into_709 ? target.colours : source.colours, std::pow(part, into_709 ? 2 : 4))));
    if (hlg && into_709) system.push_back(static_cast<float>(system_gain(part) * whites));
  }
}

// What the chroma codes add to stored values, which black is part of.
ColourChange::Vector ColourChange::stored_chroma(float u, float v) const {
  float middle = static_cast<float>(1 << (source.depth - 1));
  u -= middle;
  v -= middle;
  if (source.colours.matrix == AVCOL_SPC_BT2020_CL) {
    float unit = source.colours.range == AVCOL_RANGE_JPEG
                     ? 1 / static_cast<float>((1 << source.depth) - 1)
                     : 1 / static_cast<float>(224 << (source.depth - 8));
    return {source_black[0] + v * unit * (v <= 0 ? 1.7184F : 0.9936F), source_black[0],
            source_black[0] + u * unit * (u <= 0 ? 1.9404F : 1.5816F)};
  }
  Vector result = source_black;
  for (int i = 0; i < 3; ++i) result[i] += source_chroma[i][1] * u + source_chroma[i][2] * v;
  return result;
}

// Into the gamut, of the same hue and luminance; then below white, of the same hue and saturation.
void ColourChange::fit_709(Vector& light) const {
  float least = std::min(light[0], std::min(light[1], light[2]));
  if (least < 0) {
    float luminance = 0.2126F * light[0] + 0.7152F * light[1] + 0.0722F * light[2];
    float kept = luminance > 0 ? luminance / (luminance - least) : 0;
    for (float& value : light) value = luminance + kept * (value - luminance);
  }
  float greatest = std::max(light[0], std::max(light[1], light[2]));
  if (greatest <= kKnee || peak <= 1) return;
  // A hyperbola that leaves the knee as steep as the straight line, and reaches 1 at the peak.
  float way = std::min((greatest - kKnee) / (peak - kKnee), 1.0F);
  float steep = (peak - kKnee) / (1 - kKnee);
  float gain = (kKnee + (1 - kKnee) * steep * way / (1 + (steep - 1) * way)) / greatest;
  for (float& value : light) value *= gain;
}

ColourChange::Vector ColourChange::changed(const Vector& stored) const {
  if (!by_light) return stored;
  const Vector curved{look_up(curve.data(), stored[0]), look_up(curve.data(), stored[1]),
                      look_up(curve.data(), stored[2])};
  Vector light{dot(to_rgb[0], curved), dot(to_rgb[1], curved), dot(to_rgb[2], curved)};
  if (into_709) {
    if (!system.empty()) {
      float gain =
          look_up(system.data(), 0.2627F * light[0] + 0.6780F * light[1] + 0.0593F * light[2]);
      for (float& value : light) value *= gain;
    }
    light = {dot(to_target[0], light), dot(to_target[1], light), dot(to_target[2], light)};
    fit_709(light);
  }
  Vector root{};
  for (int i = 0; i < 3; ++i) root[i] = std::sqrt(std::max(light[i], 0.0F));
  if (!into_709) {
    for (float& value : root) value = std::sqrt(value);
  }
  const float* table = inverse_curve.data();
  return {look_up(table, root[0]), look_up(table, root[1]), look_up(table, root[2])};
}

// One line of chroma and the lines of luma that share it.
template <typename In, typename Out>
void ColourChange::convert_row(const AVFrame& from, AVFrame& to, int row) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  const float top = static_cast<float>((1 << target.depth) - 1);
  const float black = static_cast<float>(16 << (target.depth - 8));
  const float middle = static_cast<float>(1 << (target.depth - 1));
  const int first = row << d.log2_chroma_h;
  const int lines = std::min(1 << d.log2_chroma_h, from.height - first);
  const In* in_u = line_of<In>(from, 1, row);
  const In* in_v = line_of<In>(from, 2, row);
  for (int x = 0, column = 0; x < from.width; x += 1 << d.log2_chroma_w, ++column) {
    const Vector chroma = stored_chroma(in_u[column], in_v[column]);
    const int count = std::min(1 << d.log2_chroma_w, from.width - x);
    Vector sum{};
    for (int line = 0; line < lines; ++line) {
      const In* in = line_of<In>(from, 0, first + line) + x;
      Out* out = line_of<Out>(to, 0, first + line) + x;
      for (int i = 0; i < count; ++i) {
        const float y = in[i];
        const Vector rgb = changed({chroma[0] + source_luma[0] * y, chroma[1] + source_luma[1] * y,
                                    chroma[2] + source_luma[2] * y});
        for (int c = 0; c < 3; ++c) sum[c] += rgb[c];
        out[i] = rounded<Out>(black + dot(to_codes[0], rgb), top);
      }
    }
    const float share = 1 / static_cast<float>(lines * count);
    line_of<Out>(to, 1, row)[column] = rounded<Out>(middle + share * dot(to_codes[1], sum), top);
    line_of<Out>(to, 2, row)[column] = rounded<Out>(middle + share * dot(to_codes[2], sum), top);
  }
}

template <typename In, typename Out>
void ColourChange::convert(const AVFrame& from, AVFrame& to) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  int rows = AV_CEIL_RSHIFT(from.height, d.log2_chroma_h);
  for (int row = 0; row < rows; ++row) convert_row<In, Out>(from, to, row);
}

void ColourChange::apply(const AVFrame& from, AVFrame& to) const {
  if (source.depth <= 8 && target.depth <= 8) return convert<uint8_t, uint8_t>(from, to);
  if (source.depth <= 8) return convert<uint8_t, uint16_t>(from, to);
  if (target.depth <= 8) return convert<uint16_t, uint8_t>(from, to);
  convert<uint16_t, uint16_t>(from, to);
}

}  // namespace zeva_tool
