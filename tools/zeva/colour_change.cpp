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
#include <future>
#include <numeric>

#include "colour_math.h"

namespace zeva_tool {
namespace {

constexpr int kSteps = 4095;  // few enough for the processor's first cache
constexpr float kNearlyNothing = 1e-9F;
constexpr float kKnee = 0.75F;  // of reference white; below, light stays as it is

template <typename Sample>
Sample* line_of(const AVFrame& frame, int plane, int y) {
  return reinterpret_cast<Sample*>(frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane]);
}

template <size_t kCount>
void look_up(const float* table, std::array<float, kCount>& values) {
  std::array<int, kCount> places;
  for (size_t i = 0; i < kCount; ++i) {
    // lround would keep the loop from becoming vectors.
    // NOLINTNEXTLINE(bugprone-incorrect-roundings)
    places[i] = static_cast<int>(std::min(std::max(values[i], 0.0F), 1.0F) * kSteps + 0.5F);
  }
  for (size_t i = 0; i < kCount; ++i) values[i] = table[places[i]];
}

template <typename Rows, typename Block>
void multiply(const Rows& m, Block& v) {
  for (size_t i = 0; i < v[0].size(); ++i) {
    const float x = v[0][i];
    const float y = v[1][i];
    const float z = v[2][i];
    for (int c = 0; c < 3; ++c) v[c][i] = m[c][0] * x + m[c][1] * y + m[c][2] * z;
  }
}

template <typename Out>
Out rounded(float value, float top) {
  // As above. NOLINTNEXTLINE(bugprone-incorrect-roundings)
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
      other_light(from.colours.transfer != to.colours.transfer ||
                  from.colours.primaries != to.colours.primaries),
      rolls_off(other_light && !to.colours.is_hdr()),
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

// Between the two, light is in units of reference white where it changes, else of the brightest
// that can be stored. Of high dynamic range the target's brightest is so much brighter that only
// the fourth root is fine enough in the dark.
void ColourChange::make_curves() {
  if (!by_light) return;
  const bool from_hlg = source.colours.transfer == AVCOL_TRC_ARIB_STD_B67;
  const bool to_hlg = target.colours.transfer == AVCOL_TRC_ARIB_STD_B67;
  const double whites = other_light ? whites_of(source.colours.transfer) : 1;
  const double target_whites = other_light ? whites_of(target.colours.transfer) : 1;
  for (int i = 0; i <= kSteps; ++i) {
    double part = static_cast<double>(i) / kSteps;
    curve.push_back(static_cast<float>(light_of(source.colours, part) * (from_hlg ? 1 : whites)));
    inverse_curve.push_back(static_cast<float>(stored_of(
        other_light ? target.colours : source.colours, std::pow(part, rolls_off ? 2 : 4))));
    if (!other_light) continue;
    if (from_hlg) system.push_back(static_cast<float>(system_gain(part) * whites));
    if (to_hlg) no_system.push_back(static_cast<float>(system_loss(part)));
  }
  for (auto& row : to_target) {
    for (float& value : row) value /= static_cast<float>(target_whites);
  }
}

// The chroma codes' part of the stored values, black included.
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
// A hyperbola leaves the knee as steep as the straight line, and reaches 1 at the peak.
void ColourChange::fit_709(Block& rgb) const {
  const float span = std::max(peak, 1.0F) - kKnee;
  const float steep = span / (1 - kKnee);
  for (int i = 0; i < kBlock; ++i) {
    float r = rgb[0][i];
    float g = rgb[1][i];
    float b = rgb[2][i];
    const float luminance = std::max(0.2126F * r + 0.7152F * g + 0.0722F * b, 0.0F);
    const float least = std::min(std::min(r, std::min(g, b)), 0.0F);
    const float kept = luminance / (luminance - least + kNearlyNothing);
    const float greatest =
        std::max(luminance + kept * (std::max(r, std::max(g, b)) - luminance), kKnee);
    const float way = std::min((greatest - kKnee) / span, 1.0F);
    const float shown = kKnee + (1 - kKnee) * steep * way / (1 + (steep - 1) * way);
    const float gain = shown / greatest;
    rgb[0][i] = gain * (luminance + kept * (r - luminance));
    rgb[1][i] = gain * (luminance + kept * (g - luminance));
    rgb[2][i] = gain * (luminance + kept * (b - luminance));
  }
}

// From stored values of the source to those of the target.
void ColourChange::change(Block& rgb) const {
  if (!by_light) return;
  for (auto& values : rgb) look_up(curve.data(), values);
  multiply(to_rgb, rgb);
  if (other_light) {
    if (!system.empty()) brighten(rgb, system);
    multiply(to_target, rgb);
    if (rolls_off) fit_709(rgb);
    if (!no_system.empty()) brighten(rgb, no_system);
  }
  for (auto& values : rgb) {
    for (float& value : values) value = std::sqrt(std::max(value, 0.0F));
    if (!rolls_off) {
      for (float& value : values) value = std::sqrt(value);
    }
    look_up(inverse_curve.data(), values);
  }
}

// By a table of the luminance, which is that of BT.2020.
void ColourChange::brighten(Block& rgb, const std::vector<float>& gain_by_luminance) {
  std::array<float, kBlock> gains;
  for (int i = 0; i < kBlock; ++i) {
    gains[i] = 0.2627F * rgb[0][i] + 0.6780F * rgb[1][i] + 0.0593F * rgb[2][i];
  }
  look_up(gain_by_luminance.data(), gains);
  for (auto& values : rgb) {
    for (int i = 0; i < kBlock; ++i) values[i] *= gains[i];
  }
}

// One line of chroma and the lines of luma that share it, block by block.
template <typename In, typename Out>
void ColourChange::convert_row(const AVFrame& from, AVFrame& to, int row) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  const int first = row << d.log2_chroma_h;
  const int lines = std::min(1 << d.log2_chroma_h, from.height - first);
  const In* in_u = line_of<In>(from, 1, row);
  const In* in_v = line_of<In>(from, 2, row);
  for (int x = 0; x < from.width; x += kBlock) {
    const int count = std::min(kBlock, from.width - x);
    const int column = x >> d.log2_chroma_w;
    const int columns = AV_CEIL_RSHIFT(count, d.log2_chroma_w);
    Block chroma{};
    for (int i = 0; i < count; ++i) {
      const int at = column + (i >> d.log2_chroma_w);
      const Vector added = stored_chroma(in_u[at], in_v[at]);
      for (int c = 0; c < 3; ++c) chroma[c][i] = added[c];
    }
    Block sum{};
    for (int line = 0; line < lines; ++line) {
      const Block rgb = changed_line(chroma, line_of<In>(from, 0, first + line) + x, count);
      put_luma(rgb, line_of<Out>(to, 0, first + line) + x, count);
      for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < kBlock; ++i) sum[c][i] += rgb[c][i];
      }
    }
    for (int i = 0; i < columns; ++i) {
      const int start = i << d.log2_chroma_w;
      const int end = std::min(start + (1 << d.log2_chroma_w), count);
      Vector mean{};
      for (int c = 0; c < 3; ++c) {
        mean[c] = std::accumulate(&sum[c][start], &sum[c][0] + end, 0.0F) /
                  static_cast<float>(lines * (end - start));
      }
      put_chroma(mean, line_of<Out>(to, 1, row)[column + i], line_of<Out>(to, 2, row)[column + i]);
    }
  }
}

template <typename In>
ColourChange::Block ColourChange::changed_line(const Block& chroma, const In* luma,
                                               int count) const {
  Block rgb = chroma;
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < count; ++i) rgb[c][i] += source_luma[c] * static_cast<float>(luma[i]);
  }
  change(rgb);
  return rgb;
}

template <typename Out>
void ColourChange::put_luma(const Block& rgb, Out* luma, int count) const {
  const float top = static_cast<float>((1 << target.depth) - 1);
  const float black = static_cast<float>(16 << (target.depth - 8));
  for (int i = 0; i < count; ++i) {
    luma[i] = rounded<Out>(black + to_codes[0][0] * rgb[0][i] + to_codes[0][1] * rgb[1][i] +
                               to_codes[0][2] * rgb[2][i],
                           top);
  }
}

template <typename Out>
void ColourChange::put_chroma(const Vector& rgb, Out& u, Out& v) const {
  const float top = static_cast<float>((1 << target.depth) - 1);
  const float middle = static_cast<float>(1 << (target.depth - 1));
  u = rounded<Out>(middle + dot(to_codes[1], rgb), top);
  v = rounded<Out>(middle + dot(to_codes[2], rgb), top);
}

template <typename In, typename Out>
void ColourChange::convert_rows(const AVFrame& from, AVFrame& to, int begin, int end) const {
  for (int row = begin; row < end; ++row) convert_row<In, Out>(from, to, row);
}

// The lower half by a second thread, where the system has one to give.
template <typename In, typename Out>
void ColourChange::convert(const AVFrame& from, AVFrame& to) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  const int rows = AV_CEIL_RSHIFT(from.height, d.log2_chroma_h);
  const std::future<void> lower =
      std::async([&, rows] { convert_rows<In, Out>(from, to, rows / 2, rows); });
  convert_rows<In, Out>(from, to, 0, rows / 2);
  lower.wait();
}

void ColourChange::apply(const AVFrame& from, AVFrame& to) const {
  if (source.depth <= 8 && target.depth <= 8) return convert<uint8_t, uint8_t>(from, to);
  if (source.depth <= 8) return convert<uint8_t, uint16_t>(from, to);
  if (target.depth <= 8) return convert<uint16_t, uint8_t>(from, to);
  convert<uint16_t, uint16_t>(from, to);
}

}  // namespace zeva_tool
