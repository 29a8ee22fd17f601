#include "colour_math.h"

#include <algorithm>
#include <cmath>

namespace zeva_tool {
namespace {

Matrix inverse(const Matrix& m) {
  Matrix result{};
  for (int i = 0; i < 3; ++i) {
    int a = (i + 1) % 3;
    int b = (i + 2) % 3;
    for (int j = 0; j < 3; ++j) {
      int c = (j + 1) % 3;
      int d = (j + 2) % 3;
      result[j][i] = m[a][c] * m[b][d] - m[a][d] * m[b][c];
    }
  }
  double determinant = m[0][0] * result[0][0] + m[0][1] * result[1][0] + m[0][2] * result[2][0];
  for (Triple& row : result) {
    for (double& value : row) value /= determinant;
  }
  return result;
}

// ---- matrices of luma and chroma (ITU-T H.273, 8.3)

struct Shares {
  double red, blue;
};

Shares shares_of(AVColorSpace matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
      return {0.2126, 0.0722};
    case AVCOL_SPC_BT2020_NCL:
      return {0.2627, 0.0593};
    case AVCOL_SPC_FCC:
      return {0.30, 0.11};
    case AVCOL_SPC_SMPTE240M:
      return {0.212, 0.087};
    default:
      return {0.299, 0.114};
  }
}

// Of BT.709, which BT.2020 took over.
double camera_curve(double light) {
  return light < 0.018 ? 4.5 * light : 1.099 * std::pow(light, 0.45) - 0.099;
}

double camera_light(double stored) {
  return stored < 0.081 ? stored / 4.5 : std::pow((stored + 0.099) / 1.099, 1 / 0.45);
}

// ---- curves of high dynamic range (ITU-R BT.2100)

constexpr double kPqM1 = 2610.0 / 16384;
constexpr double kPqM2 = 2523.0 / 32;
constexpr double kPqC1 = 3424.0 / 4096;
constexpr double kPqC2 = 2413.0 / 128;
constexpr double kPqC3 = 2392.0 / 128;
constexpr double kPqNits = 10000;
constexpr double kHlgA = 0.17883277;
constexpr double kHlgB = 1 - 4 * kHlgA;
constexpr double kHlgC = 0.55991073;
constexpr double kHlgNits = 1000;  // of the display that the system's gamma is for
constexpr double kHlgGamma = 1.2;

double pq_light(double stored) {
  double e = std::pow(std::clamp(stored, 0.0, 1.0), 1 / kPqM2);
  return std::pow(std::max(e - kPqC1, 0.0) / (kPqC2 - kPqC3 * e), 1 / kPqM1);
}

double pq_stored(double light) {
  double y = std::pow(std::clamp(light, 0.0, 1.0), kPqM1);
  return std::pow((kPqC1 + kPqC2 * y) / (1 + kPqC3 * y), kPqM2);
}

double hlg_scene(double stored) {
  double e = std::clamp(stored, 0.0, 1.0);
  return e <= 0.5 ? e * e / 3 : (std::exp((e - kHlgC) / kHlgA) + kHlgB) / 12;
}

double hlg_stored(double scene) {
  double e = std::clamp(scene, 0.0, 1.0);
  return e <= 1.0 / 12 ? std::sqrt(3 * e) : kHlgA * std::log(12 * e - kHlgB) + kHlgC;
}

// ---- primaries

struct Chromaticity {
  double x, y;
};

// Red, green and blue by their chromaticities, with white D65, into CIE XYZ.
Matrix to_xyz(AVColorPrimaries primaries) {
  using Set = std::array<Chromaticity, 3>;
  static constexpr Set k709{{{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}}};
  static constexpr Set kPal{{{0.640, 0.330}, {0.290, 0.600}, {0.150, 0.060}}};
  static constexpr Set kNtsc{{{0.630, 0.340}, {0.310, 0.595}, {0.155, 0.070}}};
  static constexpr Set k2020{{{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}}};
  static constexpr Set kP3{{{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}}};
  static constexpr Chromaticity kD65{0.3127, 0.3290};
  auto set = [&]() -> const Set& {
    if (primaries == AVCOL_PRI_BT2020) return k2020;
    if (primaries == AVCOL_PRI_SMPTE431 || primaries == AVCOL_PRI_SMPTE432) return kP3;
    if (primaries == AVCOL_PRI_SMPTE170M || primaries == AVCOL_PRI_SMPTE240M) return kNtsc;
    return primaries == AVCOL_PRI_BT470BG ? kPal : k709;
  };
  auto xyz = [](Chromaticity c) { return Triple{c.x / c.y, 1, (1 - c.x - c.y) / c.y}; };
  Matrix columns{};
  for (int j = 0; j < 3; ++j) {
    Triple column = xyz(set()[j]);
    for (int i = 0; i < 3; ++i) columns[i][j] = column[i];
  }
  Triple amounts = inverse(columns) * xyz(kD65);
  for (Triple& row : columns) {
    for (int j = 0; j < 3; ++j) row[j] *= amounts[j];
  }
  return columns;
}

constexpr double kDisplayGamma = 2.4;  // ITU-R BT.1886

}  // namespace

Triple operator*(const Matrix& m, const Triple& v) {
  Triple result{};
  for (int i = 0; i < 3; ++i) result[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
  return result;
}

Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix result{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      result[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
    }
  }
  return result;
}

Matrix stored_by(const Colours& colours) {
  if (colours.matrix == AVCOL_SPC_BT2020_CL) return {{{1, 0, 0}, {1, 0, 0}, {1, 0, 0}}};
  if (colours.matrix == AVCOL_SPC_YCGCO) return {{{1, -1, 1}, {1, 1, 0}, {1, -1, -1}}};
  if (colours.matrix == AVCOL_SPC_ICTCP && colours.transfer == AVCOL_TRC_ARIB_STD_B67) {
    return {{{1, 0.015718580, 0.209581068},
             {1, -0.015718580, -0.209581068},
             {1, 1.021271080, -0.605274491}}};
  }
  if (colours.matrix == AVCOL_SPC_ICTCP) {
    return {{{1, 0.008609037, 0.111029625},
             {1, -0.008609037, -0.111029625},
             {1, 0.560031336, -0.320627175}}};
  }
  return inverse(luma_chroma_by(colours.matrix));
}

Matrix luma_chroma_by(AVColorSpace matrix) {
  auto [red, blue] = shares_of(matrix);
  double green = 1 - red - blue;
  double u = 2 * (1 - blue);
  double v = 2 * (1 - red);
  return {{{red, green, blue}, {-red / u, -green / u, 0.5}, {0.5, -green / v, -blue / v}}};
}

Matrix rgb_light_by(AVColorSpace matrix) {
  if (matrix == AVCOL_SPC_ICTCP) {
    return inverse({{{1688.0 / 4096, 2146.0 / 4096, 262.0 / 4096},
                     {683.0 / 4096, 2951.0 / 4096, 462.0 / 4096},
                     {99.0 / 4096, 309.0 / 4096, 3688.0 / 4096}}});
  }
  if (matrix != AVCOL_SPC_BT2020_CL) return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  // Red, luminance and blue (ITU-R BT.2020, constant luminance).
  auto [red, blue] = shares_of(AVCOL_SPC_BT2020_NCL);
  return inverse({{{1, 0, 0}, {red, 1 - red - blue, blue}, {0, 0, 1}}});
}

Matrix primaries_change(AVColorPrimaries from, AVColorPrimaries to) {
  return inverse(to_xyz(to)) * to_xyz(from);
}

double light_of(const Colours& colours, double stored) {
  if (colours.transfer == AVCOL_TRC_SMPTE2084) return pq_light(stored);
  if (colours.transfer == AVCOL_TRC_ARIB_STD_B67) return hlg_scene(stored);
  if (colours.matrix == AVCOL_SPC_BT2020_CL) return camera_light(stored);
  return std::pow(stored, kDisplayGamma);
}

double stored_of(const Colours& colours, double light) {
  if (colours.transfer == AVCOL_TRC_SMPTE2084) return pq_stored(light);
  if (colours.transfer == AVCOL_TRC_ARIB_STD_B67) return hlg_stored(light);
  if (colours.matrix == AVCOL_SPC_BT2020_CL) return camera_curve(light);
  return std::pow(light, 1 / kDisplayGamma);
}

double whites_of(AVColorTransferCharacteristic transfer) {
  if (transfer == AVCOL_TRC_SMPTE2084) return kPqNits / kReferenceWhiteNits;
  return transfer == AVCOL_TRC_ARIB_STD_B67 ? kHlgNits / kReferenceWhiteNits : 1;
}

double system_gain(double luminance) { return std::pow(luminance, kHlgGamma - 1); }

double system_loss(double luminance) {
  constexpr double kDarkest = 1e-4;  // below, the loss would grow without limit
  return std::pow(std::max(luminance, kDarkest), 1 / kHlgGamma - 1);
}

}  // namespace zeva_tool
