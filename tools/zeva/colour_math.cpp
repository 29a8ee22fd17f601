#include "colour_math.h"

#include <algorithm>
#include <cmath>

namespace zeva_tool {
namespace {

using Matrix = std::array<Triple, 3>;

Triple times(const Matrix& m, const Triple& v) {
  Triple result{};
  for (int i = 0; i < 3; ++i) result[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
  return result;
}

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

// ITU-R BT.2020 with constant luminance: luma is made of light, not of stored RGB.
Triple of_constant_luminance(const Triple& v) {
  double blue = v[0] + v[1] * (v[1] <= 0 ? 1.9404 : 1.5816);
  double red = v[0] + v[2] * (v[2] <= 0 ? 1.7184 : 0.9936);
  auto [share_red, share_blue] = shares_of(AVCOL_SPC_BT2020_NCL);
  double green =
      (camera_light(v[0]) - share_red * camera_light(red) - share_blue * camera_light(blue)) /
      (1 - share_red - share_blue);
  return {red, camera_curve(green), blue};
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

Triple each(const Triple& v, double (*curve)(double)) {
  return {curve(v[0]), curve(v[1]), curve(v[2])};
}

Triple of_ictcp(bool pq, const Triple& v) {
  static constexpr Matrix kPq{{{1, 0.008609037, 0.111029625},
                               {1, -0.008609037, -0.111029625},
                               {1, 0.560031336, -0.320627175}}};
  static constexpr Matrix kHlg{{{1, 0.015718580, 0.209581068},
                                {1, -0.015718580, -0.209581068},
                                {1, 1.021271080, -0.605274491}}};
  static constexpr Matrix kCones{{{1688.0 / 4096, 2146.0 / 4096, 262.0 / 4096},
                                  {683.0 / 4096, 2951.0 / 4096, 462.0 / 4096},
                                  {99.0 / 4096, 309.0 / 4096, 3688.0 / 4096}}};
  Triple cones = each(times(pq ? kPq : kHlg, v), pq ? pq_light : hlg_scene);
  return each(times(inverse(kCones), cones), pq ? pq_stored : hlg_stored);
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
  Triple amounts = times(inverse(columns), xyz(kD65));
  for (Triple& row : columns) {
    for (int j = 0; j < 3; ++j) row[j] *= amounts[j];
  }
  return columns;
}

double luminance_709(const Triple& v) { return 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2]; }

Triple in_709(AVColorPrimaries primaries, const Triple& light) {
  if (primaries == AVCOL_PRI_BT709 || primaries == AVCOL_PRI_UNSPECIFIED) return light;
  Triple v = times(inverse(to_xyz(AVCOL_PRI_BT709)), times(to_xyz(primaries), light));
  double luminance = luminance_709(v);
  double least = std::min({v[0], v[1], v[2]});
  if (least >= 0 || luminance <= 0) return v;
  double kept = luminance / (luminance - least);
  for (double& value : v) value = luminance + kept * (value - luminance);
  return v;
}

constexpr double kDisplayGamma = 2.4;

}  // namespace

Triple stored_rgb(const Colours& colours, const Triple& v) {
  if (colours.matrix == AVCOL_SPC_YCGCO) {
    double rest = v[0] - v[1];
    return {rest + v[2], v[0] + v[1], rest - v[2]};
  }
  if (colours.matrix == AVCOL_SPC_ICTCP) {
    return of_ictcp(colours.transfer != AVCOL_TRC_ARIB_STD_B67, v);
  }
  if (colours.matrix == AVCOL_SPC_BT2020_CL) return of_constant_luminance(v);
  auto [share_red, share_blue] = shares_of(colours.matrix);
  double red = v[0] + v[2] * 2 * (1 - share_red);
  double blue = v[0] + v[1] * 2 * (1 - share_blue);
  return {red, (v[0] - share_red * red - share_blue * blue) / (1 - share_red - share_blue), blue};
}

Triple luma_chroma(AVColorSpace matrix, const Triple& rgb) {
  auto [share_red, share_blue] = shares_of(matrix);
  double luma = share_red * rgb[0] + (1 - share_red - share_blue) * rgb[1] + share_blue * rgb[2];
  return {luma, (rgb[2] - luma) / (2 * (1 - share_blue)), (rgb[0] - luma) / (2 * (1 - share_red))};
}

Triple light_of(const Colours& colours, const Triple& rgb) {
  Triple light{};
  if (colours.transfer == AVCOL_TRC_SMPTE2084) {
    for (int i = 0; i < 3; ++i) light[i] = pq_light(rgb[i]) * kPqNits / kReferenceWhiteNits;
  } else if (colours.transfer == AVCOL_TRC_ARIB_STD_B67) {
    light = each(rgb, hlg_scene);
    double scene = 0.2627 * light[0] + 0.6780 * light[1] + 0.0593 * light[2];
    double gain = std::pow(scene, kHlgGamma - 1) * kHlgNits / kReferenceWhiteNits;
    for (double& value : light) value *= gain;
  } else {
    for (int i = 0; i < 3; ++i) light[i] = std::pow(std::max(rgb[i], 0.0), kDisplayGamma);
  }
  return in_709(colours.primaries, light);
}

Triple stored_for_709(const Triple& light) {
  return each(light, [](double v) { return std::pow(std::max(v, 0.0), 1 / kDisplayGamma); });
}

Triple rolled_off(const Triple& light, double peak) {
  constexpr double kKnee = 0.75;
  double greatest = std::max({light[0], light[1], light[2]});
  if (greatest <= kKnee || peak <= 1) return light;
  // A hyperbola that leaves the knee as steep as the straight line, and reaches 1 at the peak.
  double way = std::min((greatest - kKnee) / (peak - kKnee), 1.0);
  double steep = (peak - kKnee) / (1 - kKnee);
  double target = kKnee + (1 - kKnee) * steep * way / (1 + (steep - 1) * way);
  Triple result = light;
  for (double& value : result) value *= target / greatest;
  return result;
}

}  // namespace zeva_tool
