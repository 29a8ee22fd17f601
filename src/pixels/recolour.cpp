#include "recolour.h"

#include <algorithm>
#include <cmath>

#include "colour_matrix.h"

namespace zeva {
namespace {

constexpr int kBits = RecolourWeights::kBits;
constexpr int kLumaBits = RecolourWeights::kLumaBits;

int32_t fixed32(double value) { return static_cast<int32_t>(std::lround(value * (1 << kBits))); }
int16_t fixed(double value) { return static_cast<int16_t>(fixed32(value)); }

RecolourWeights weights_for(const PictureFormat& from, const PictureFormat& to) {
  LumaWeights in;
  LumaWeights out;
  find_luma_weights(from.matrix, &in);
  find_luma_weights(to.matrix, &out);
  const YuvToYuvMatrix m = yuv_to_yuv_matrix(in, code_range(from.range), out, code_range(to.range));
  RecolourWeights w{};
  w.y = fixed(m.y[0]);
  w.y_u = fixed(m.y[1]);
  w.y_v = fixed(m.y[2]);
  w.u_u = fixed(m.u[0]);
  w.u_v = fixed(m.u[1]);
  w.v_u = fixed(m.v[0]);
  w.v_v = fixed(m.v[1]);
  // Half a step of the result, and half a step of the bits that are dropped before it.
  w.y_bias = fixed32(m.black_out - m.y[0] * m.black_in + 0.5) - 128 * (w.y_u + w.y_v) +
             (1 << (kBits - kLumaBits - 1));
  w.u_bias = fixed32(128.5) - 128 * (w.u_u + w.u_v);
  w.v_bias = fixed32(128.5) - 128 * (w.v_u + w.v_v);
  return w;
}

uint8_t to_byte(int value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); }

void plain_luma(const YuvRow& in, uint8_t* to, int x, int width, const RecolourWeights& w) {
  for (; x < width; ++x) {
    const int chroma = w.y_u * in.u[x / 2] + w.y_v * in.v[x / 2] + w.y_bias;
    const int luma = ((in.y[x] << 7) * w.y + 0x4000) >> 15;
    to[x] = to_byte((luma + (chroma >> (kBits - kLumaBits))) >> kLumaBits);
  }
}

void plain_chroma(const YuvRow& in, uint8_t* u, uint8_t* v, int i, int count,
                  const RecolourWeights& w) {
  for (; i < count; ++i) {
    u[i] = to_byte((w.u_u * in.u[i] + w.u_v * in.v[i] + w.u_bias) >> kBits);
    v[i] = to_byte((w.v_u * in.u[i] + w.v_v * in.v[i] + w.v_bias) >> kBits);
  }
}

}  // namespace

bool Recolour::supports(const PictureFormat& from, const PictureFormat& to) {
  LumaWeights weights;
  return find_luma_weights(from.matrix, &weights) && find_luma_weights(to.matrix, &weights) &&
         ((is_planar_420(from.pixels) && is_planar_420(to.pixels)) ||
          (is_planar_422(from.pixels) && is_planar_422(to.pixels)));
}

Recolour::Recolour(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)), weights(weights_for(from, to)) {}

void Recolour::run(const AVFrame& in, AVFrame& out) {
  const int step = is_planar_420(static_cast<AVPixelFormat>(out.format)) ? 2 : 1;
  for (int y = 0; y < out.height; ++y) {
    const YuvRow row = {row_of(in, 0, y), row_of(in, 1, y / step), row_of(in, 2, y / step)};
    uint8_t* luma = row_of(out, 0, y);
    const int x = kernels != nullptr ? kernels->recolour_luma(row, luma, out.width, weights) : 0;
    plain_luma(row, luma, x, out.width, weights);
    if (y % step != 0) continue;
    uint8_t* u = row_of(out, 1, y / step);
    uint8_t* v = row_of(out, 2, y / step);
    const int count = half_of(out.width);
    const int i = kernels != nullptr ? kernels->recolour_chroma(row, u, v, count, weights) : 0;
    plain_chroma(row, u, v, i, count, weights);
  }
}

}  // namespace zeva
