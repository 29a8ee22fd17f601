// Colours as numbers: from luma and chroma to light, and back.
#pragma once

#include <array>

#include "colours.h"

namespace zeva_tool {

using Triple = std::array<double, 3>;

// 1 is reference white; high dynamic range goes beyond (ITU-R BT.2408: it is at 203 cd/m2).
constexpr double kReferenceWhiteNits = 203;

// Luma 0..1 and chroma -0.5..0.5 as stored, into the red, green and blue they were made of.
Triple stored_rgb(const Colours& colours, const Triple& luma_chroma);

// The inverse for the matrices that have two shares.
Triple luma_chroma(AVColorSpace matrix, const Triple& stored_rgb);

// The light that a reference display makes of stored RGB, in the primaries of BT.709. What these
// cannot show, is less saturated there, of the same hue and luminance.
Triple light_of(const Colours& colours, const Triple& stored_rgb);

// The inverse for a display of BT.709 (ITU-R BT.1886).
Triple stored_for_709(const Triple& light);

// Brings light up to `peak` times reference white below 1. Three quarters of the way to white
// nothing changes; hue and saturation stay.
Triple rolled_off(const Triple& light, double peak);

}  // namespace zeva_tool
