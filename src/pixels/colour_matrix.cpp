#include "colour_matrix.h"

namespace zeva {

bool find_luma_weights(AVColorSpace matrix, LumaWeights* weights) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
      *weights = {0.2126, 0.0722};
      return true;
    case AVCOL_SPC_FCC:
      *weights = {0.30, 0.11};
      return true;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
      *weights = {0.299, 0.114};
      return true;
    case AVCOL_SPC_SMPTE240M:
      *weights = {0.212, 0.087};
      return true;
    case AVCOL_SPC_BT2020_NCL:
      *weights = {0.2627, 0.0593};
      return true;
    default:
      return false;
  }
}

CodeRange code_range(AVColorRange range) {
  return range == AVCOL_RANGE_JPEG ? CodeRange{0, 255, 255} : CodeRange{16, 219, 224};
}

RgbToYuvMatrix rgb_to_yuv_matrix(const LumaWeights& weights, const CodeRange& range) {
  const double share[3] = {weights.red, weights.green(), weights.blue};
  RgbToYuvMatrix m{};
  m.black = range.black;
  for (int i = 0; i < 3; ++i) {
    m.y[i] = share[i] * range.luma / 255;
    m.u[i] = ((i == 2) - share[i]) / (2 * (1 - weights.blue)) * range.chroma / 255;
    m.v[i] = ((i == 0) - share[i]) / (2 * (1 - weights.red)) * range.chroma / 255;
  }
  return m;
}

// Chroma to R and B less luma (green follows), and these through the other matrix.
YuvToYuvMatrix yuv_to_yuv_matrix(const LumaWeights& in, const CodeRange& in_range,
                                 const LumaWeights& out, const CodeRange& out_range) {
  const double blue = 2 * (1 - in.blue) / in_range.chroma;  // (B - Y) of a step of U
  const double red = 2 * (1 - in.red) / in_range.chroma;
  const double green_u = -blue * in.blue / in.green();  // (G - Y) of a step of U
  const double green_v = -red * in.red / in.green();
  const double luma_u = out.green() * green_u + out.blue * blue;
  const double luma_v = out.green() * green_v + out.red * red;
  const double to_u = out_range.chroma / (2 * (1 - out.blue));
  const double to_v = out_range.chroma / (2 * (1 - out.red));
  return {{out_range.luma / in_range.luma, luma_u * out_range.luma, luma_v * out_range.luma},
          {(blue - luma_u) * to_u, -luma_v * to_u},
          {-luma_u * to_v, (red - luma_v) * to_v},
          in_range.black,
          out_range.black};
}

}  // namespace zeva
