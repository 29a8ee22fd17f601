#include "rgb_to_yuv.h"

#include <algorithm>
#include <cmath>

#include "colour_matrix.h"

namespace zeva {
namespace {

constexpr int kBits = RgbCoefficients::kBits;

int16_t fixed(double value) { return static_cast<int16_t>(std::lround(value * (1 << kBits))); }

// Green, the largest, takes up the rounding, so that grey comes out without colour and white white.
void set_weights(const double rgb[3], const AVPixFmtDescriptor& pixels, int16_t weights[4]) {
  const int16_t red = fixed(rgb[0]);
  const int16_t blue = fixed(rgb[2]);
  const int16_t all = fixed(rgb[0] + rgb[1] + rgb[2]);
  std::fill_n(weights, 4, int16_t{0});
  weights[pixels.comp[0].offset] = red;
  weights[pixels.comp[1].offset] = static_cast<int16_t>(all - red - blue);
  weights[pixels.comp[2].offset] = blue;
}

RgbCoefficients coefficients_for(const PictureFormat& from, const PictureFormat& to) {
  LumaWeights luma;
  find_luma_weights(to.matrix, &luma);
  const RgbToYuvMatrix matrix = rgb_to_yuv_matrix(luma, code_range(to.range));
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(from.pixels);
  RgbCoefficients c{};
  set_weights(matrix.y, pixels, c.y);
  set_weights(matrix.u, pixels, c.u);
  set_weights(matrix.v, pixels, c.v);
  c.y_bias = static_cast<int32_t>(std::lround((matrix.black + 0.5) * (1 << kBits)));
  c.chroma_bias = 128 * (4 << kBits) + (2 << kBits);
  return c;
}

template <int kPixelBytes, typename Value>
int weigh(const Value* channels, const int16_t weights[4]) {
  int sum = weights[0] * channels[0] + weights[1] * channels[1] + weights[2] * channels[2];
  if (kPixelBytes == 4) sum += weights[3] * channels[3];
  return sum;
}

uint8_t to_byte(int value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); }

// The columns from `x` on, which is even.
template <int kPixelBytes>
void plain_rgb_rows(const RgbRows& rows, const RgbCoefficients& c, int x) {
  uint8_t* to_v = rows.v != nullptr ? rows.v : rows.u + 1;
  const int chroma_step = rows.v != nullptr ? 1 : 2;
  for (; x < rows.width; x += 2) {
    const int next = std::min(x + 1, rows.width - 1);
    int sum[4] = {};
    for (int row = 0; row < 2; ++row) {
      for (const int column : {x, next}) {
        const uint8_t* pixel = rows.in[row] + column * kPixelBytes;
        rows.y[row][column] = to_byte((weigh<kPixelBytes>(pixel, c.y) + c.y_bias) >> kBits);
        for (int i = 0; i < kPixelBytes; ++i) sum[i] += pixel[i];
      }
    }
    const int at = x / 2 * chroma_step;
    rows.u[at] = to_byte((weigh<kPixelBytes>(sum, c.u) + c.chroma_bias) >> (kBits + 2));
    to_v[at] = to_byte((weigh<kPixelBytes>(sum, c.v) + c.chroma_bias) >> (kBits + 2));
  }
}

template <int kPixelBytes>
void plain_rgb_row_444(const RgbRow444& row, const RgbCoefficients& c, int x) {
  for (; x < row.width; ++x) {
    const uint8_t* pixel = row.in + static_cast<ptrdiff_t>(x) * kPixelBytes;
    row.y[x] = to_byte((weigh<kPixelBytes>(pixel, c.y) + c.y_bias) >> kBits);
    row.u[x] = to_byte((weigh<kPixelBytes>(pixel, c.u) + (c.chroma_bias >> 2)) >> kBits);
    row.v[x] = to_byte((weigh<kPixelBytes>(pixel, c.v) + (c.chroma_bias >> 2)) >> kBits);
  }
}

}  // namespace

bool RgbToYuv::supports(const PictureFormat& from, const PictureFormat& to) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(from.pixels);
  constexpr uint64_t kOther = AV_PIX_FMT_FLAG_PLANAR | AV_PIX_FMT_FLAG_BITSTREAM |
                              AV_PIX_FMT_FLAG_BAYER | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_PAL;
  LumaWeights luma;
  return (pixels->flags & AV_PIX_FMT_FLAG_RGB) != 0 && (pixels->flags & kOther) == 0 &&
         pixels->comp[0].depth == 8 && (pixels->comp[0].step == 3 || pixels->comp[0].step == 4) &&
         (is_planar_420(to.pixels) || is_planar_422(to.pixels) || is_planar_444(to.pixels) ||
          to.pixels == AV_PIX_FMT_NV12) &&
         find_luma_weights(to.matrix, &luma);
}

RgbToYuv::RgbToYuv(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)),
      coefficients(coefficients_for(from, to)),
      pixel_bytes(av_pix_fmt_desc_get(from.pixels)->comp[0].step) {}

void RgbToYuv::convert_rows(const RgbRows& rows, const RgbCoefficients& c) const {
  const int done = kernels != nullptr ? kernels->rgb_to_yuv(rows, c) : 0;
  const auto plain = pixel_bytes == 4 ? plain_rgb_rows<4> : plain_rgb_rows<3>;
  plain(rows, c, done);
}

void RgbToYuv::convert_row_444(const RgbRow444& row) const {
  const RgbCoefficients& c = coefficients;
  const int done = kernels != nullptr ? kernels->rgb_to_yuv444(row, c) : 0;
  const auto plain = pixel_bytes == 4 ? plain_rgb_row_444<4> : plain_rgb_row_444<3>;
  plain(row, c, done);
}

void RgbToYuv::run(const AVFrame& in, AVFrame& out) {
  if (is_planar_444(static_cast<AVPixelFormat>(out.format))) {
    for (int y = 0; y < out.height; ++y) {
      convert_row_444({row_of(in, 0, y), row_of(out, 0, y), row_of(out, 1, y), row_of(out, 2, y),
                       out.width, pixel_bytes});
    }
    return;
  }
  const bool planar = out.format != AV_PIX_FMT_NV12;
  const int step = is_planar_422(static_cast<AVPixelFormat>(out.format)) ? 1 : 2;
  for (int y = 0; y < out.height; y += step) {
    const int next = std::min(y + step - 1, out.height - 1);
    convert_rows({{row_of(in, 0, y), row_of(in, 0, next)},
                  {row_of(out, 0, y), row_of(out, 0, next)},
                  row_of(out, 1, y / step),
                  planar ? row_of(out, 2, y / step) : nullptr,
                  out.width,
                  pixel_bytes},
                 coefficients);
  }
}

}  // namespace zeva
