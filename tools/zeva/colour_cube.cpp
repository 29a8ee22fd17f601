// The table holds the new luma and chroma for every combination of 65 lumas and 33 values of either
// chroma, as fractions of codes; what lies between is interpolated linearly. The luma samples that
// share chroma samples share their place in the two chroma dimensions, of which the four corners
// are weighted once for all of them. Chroma changes by the mean of its luma samples. A change that
// is only a matrix comes out exact, since it is linear; for that the table is not clipped, but what
// is read from it.
#include "colour_cube.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "colour_math.h"

namespace zeva_tool {
namespace {

constexpr int kLumaBits = 6;
constexpr int kChromaBits = 5;
constexpr int kLumas = (1 << kLumaBits) + 1;
constexpr int kChromas = (1 << kChromaBits) + 1;
constexpr ptrdiff_t kNextV = kLumas;
constexpr ptrdiff_t kNextU = ptrdiff_t{kLumas} * kChromas;

// Codes of 8 bits with fractions, from and to luma 0..1 and chroma -0.5..0.5 (ITU-T H.273, 8.3).
Triple from_codes(AVColorRange range, const Triple& codes) {
  if (range == AVCOL_RANGE_JPEG) {
    constexpr double kTop = 255;
    return {codes[0] / kTop, (codes[1] - 128) / kTop, (codes[2] - 128) / kTop};
  }
  return {(codes[0] - 16) / 219, (codes[1] - 128) / 224, (codes[2] - 128) / 224};
}

Triple to_codes(const Triple& v) { return {16 + 219 * v[0], 128 + 224 * v[1], 128 + 224 * v[2]}; }

Triple changed(const Colours& from, const Colours& to, double peak, const Triple& codes) {
  Triple rgb = stored_rgb(from, from_codes(from.range, codes));
  bool other_light = from.transfer != to.transfer || from.primaries != to.primaries;
  if (other_light) rgb = stored_for_709(rolled_off(light_of(from, rgb), peak));
  return to_codes(luma_chroma(to.matrix, rgb));
}

template <typename Sample>
Sample* line_of(const AVFrame& frame, int plane, int y) {
  return reinterpret_cast<Sample*>(frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane]);
}

template <typename Out>
Out rounded(float value, int depth) {
  float top = static_cast<float>((1 << depth) - 1);
  return static_cast<Out>(std::min(std::max(value, 0.0F), top) + 0.5F);
}

}  // namespace

// Four corners of the table's u and v, and their weights.
struct ColourCube::Place {
  ptrdiff_t start;
  float weights[4];

  float mean(const float* table, ptrdiff_t step) const {
    return weights[0] * table[0] + weights[1] * table[kNextV * step] +
           weights[2] * table[kNextU * step] + weights[3] * table[(kNextU + kNextV) * step];
  }
};

ColourCube::ColourCube(const Kind& from, const Kind& to, double peak) : source(from), target(to) {
  double scale = 1 << (to.depth - 8);
  lumas.reserve(kNextU * kChromas);
  chromas.reserve(kNextU * kChromas * 2);
  for (int u = 0; u < kChromas; ++u) {
    for (int v = 0; v < kChromas; ++v) {
      for (int y = 0; y < kLumas; ++y) {
        const Triple codes{y * 256.0 / (kLumas - 1), u * 256.0 / (kChromas - 1),
                           v * 256.0 / (kChromas - 1)};
        const Triple result = changed(from.colours, to.colours, peak, codes);
        lumas.push_back(static_cast<float>(result[0] * scale));
        chromas.push_back(static_cast<float>(result[1] * scale));
        chromas.push_back(static_cast<float>(result[2] * scale));
      }
    }
  }
}

ColourCube::Place ColourCube::place_of(unsigned u, unsigned v) const {
  int shift = source.depth - kChromaBits;
  unsigned mask = (1U << shift) - 1;
  float unit = 1.0F / static_cast<float>(1U << shift);
  float part_u = static_cast<float>(u & mask) * unit;
  float part_v = static_cast<float>(v & mask) * unit;
  return {
      static_cast<ptrdiff_t>(u >> shift) * kNextU + static_cast<ptrdiff_t>(v >> shift) * kNextV,
      {(1 - part_u) * (1 - part_v), (1 - part_u) * part_v, part_u * (1 - part_v), part_u * part_v}};
}

float ColourCube::luma_at(const Place& place, unsigned y) const {
  int shift = source.depth - kLumaBits;
  const float* table = lumas.data() + place.start + (y >> shift);
  float part = static_cast<float>(y & ((1U << shift) - 1)) / static_cast<float>(1U << shift);
  float low = place.mean(table, 1);
  return low + part * (place.mean(table + 1, 1) - low);
}

template <typename Out>
void ColourCube::put_chroma(const Place& place, unsigned y, Out& u, Out& v) const {
  int shift = source.depth - kLumaBits;
  const float* table = chromas.data() + 2 * (place.start + (y >> shift));
  float part = static_cast<float>(y & ((1U << shift) - 1)) / static_cast<float>(1U << shift);
  float low_u = place.mean(table, 2);
  float low_v = place.mean(table + 1, 2);
  u = rounded<Out>(low_u + part * (place.mean(table + 2, 2) - low_u), target.depth);
  v = rounded<Out>(low_v + part * (place.mean(table + 3, 2) - low_v), target.depth);
}

// One line of chroma and the lines of luma that share it.
template <typename In, typename Out>
void ColourCube::convert_row(const AVFrame& from, AVFrame& to, int row) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  const unsigned top = (1U << source.depth) - 1;
  const In* in_u = line_of<In>(from, 1, row);
  const In* in_v = line_of<In>(from, 2, row);
  int first = row << d.log2_chroma_h;
  int lines = std::min(1 << d.log2_chroma_h, from.height - first);
  for (int x = 0, column = 0; x < from.width; x += 1 << d.log2_chroma_w, ++column) {
    const Place place =
        place_of(std::min<unsigned>(in_u[column], top), std::min<unsigned>(in_v[column], top));
    int count = std::min(1 << d.log2_chroma_w, from.width - x);
    unsigned sum = 0;
    for (int line = 0; line < lines; ++line) {
      const In* in = line_of<In>(from, 0, first + line) + x;
      Out* out = line_of<Out>(to, 0, first + line) + x;
      for (int i = 0; i < count; ++i) {
        unsigned y = std::min<unsigned>(in[i], top);
        sum += y;
        out[i] = rounded<Out>(luma_at(place, y), target.depth);
      }
    }
    put_chroma(place, sum / static_cast<unsigned>(lines * count), line_of<Out>(to, 1, row)[column],
               line_of<Out>(to, 2, row)[column]);
  }
}

template <typename In, typename Out>
void ColourCube::convert(const AVFrame& from, AVFrame& to) const {
  const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
  int rows = AV_CEIL_RSHIFT(from.height, d.log2_chroma_h);
  for (int row = 0; row < rows; ++row) convert_row<In, Out>(from, to, row);
}

void ColourCube::apply(const AVFrame& from, AVFrame& to) const {
  if (source.depth <= 8 && target.depth <= 8) return convert<uint8_t, uint8_t>(from, to);
  if (source.depth <= 8) return convert<uint8_t, uint16_t>(from, to);
  if (target.depth <= 8) return convert<uint16_t, uint8_t>(from, to);
  convert<uint16_t, uint16_t>(from, to);
}

}  // namespace zeva_tool
