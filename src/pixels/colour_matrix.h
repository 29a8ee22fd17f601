// The numbers between RGB and YUV, and between two kinds of YUV.
#pragma once

#include "picture_format.h"

namespace zeva {

// Kr and Kb of ITU-T H.273, 8.3: the shares of red and blue in luma.
struct LumaWeights {
  double red = 0;
  double blue = 0;
  double green() const { return 1 - red - blue; }
};

// False for a matrix that is not made of such weights (YCgCo, ICtCp, constant luminance).
bool find_luma_weights(AVColorSpace matrix, LumaWeights* weights);

// Eight-bit code values of a range: black, the steps from black to white, the steps of chroma.
struct CodeRange {
  double black = 16;
  double luma = 219;
  double chroma = 224;
};
CodeRange code_range(AVColorRange range);

// From R, G, B (0 to 255) to eight-bit Y, U, V: Y = black + y * RGB, U = 128 + u * RGB.
struct RgbToYuvMatrix {
  double y[3];
  double u[3];
  double v[3];
  double black;
};
RgbToYuvMatrix rgb_to_yuv_matrix(const LumaWeights& weights, const CodeRange& range);

// From eight-bit YUV to another: Y' = black' + y[0] * (Y - black) + y[1] * (U - 128) + y[2] *
// (V - 128), U' = 128 + u[0] * (U - 128) + u[1] * (V - 128). Grey stays grey in every matrix, so
// chroma never depends on luma.
struct YuvToYuvMatrix {
  double y[3];
  double u[2];
  double v[2];
  double black_in;
  double black_out;
};
YuvToYuvMatrix yuv_to_yuv_matrix(const LumaWeights& in, const CodeRange& in_range,
                                 const LumaWeights& out, const CodeRange& out_range);

}  // namespace zeva
