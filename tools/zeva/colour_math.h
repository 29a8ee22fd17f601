// Colours as numbers: matrices, curves and primaries.
#pragma once

#include <array>

#include "colours.h"

namespace zeva_tool {

using Triple = std::array<double, 3>;
using Matrix = std::array<Triple, 3>;

Triple operator*(const Matrix& m, const Triple& v);
Matrix operator*(const Matrix& a, const Matrix& b);

// 1 is reference white; high dynamic range goes beyond (ITU-R BT.2408: it is at 203 cd/m2).
constexpr double kReferenceWhiteNits = 203;

// From luma 0..1 and chroma -0.5..0.5 to what is stored: red, green and blue, or for ICtCp the
// cones' three responses. With constant luminance only luma counts here.
Matrix stored_by(const Colours& colours);

// From red, green and blue to luma and chroma, of the matrices that have two shares.
Matrix luma_chroma_by(AVColorSpace matrix);

// From the light of what is stored to that of red, green and blue.
Matrix rgb_light_by(AVColorSpace matrix);

// From light in those primaries to light in the others.
Matrix primaries_change(AVColorPrimaries from, AVColorPrimaries to);

// From a stored value 0..1 to light, and back. Light is 1 at the brightest that can be stored; in
// hybrid log-gamma it is the scene's.
double light_of(const Colours& colours, double stored);
double stored_of(const Colours& colours, double light);

// That light in units of reference white.
double whites_of(AVColorTransferCharacteristic transfer);

// By how much a display of hybrid log-gamma brightens a scene of that luminance (ITU-R BT.2100).
double system_gain(double luminance);

// By how much light of that luminance on such a display is darker in the scene; both 0..1.
double system_loss(double luminance);

}  // namespace zeva_tool
