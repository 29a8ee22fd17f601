// Turns pictures by quarters, plane by plane.
#pragma once

#include "av.h"

namespace zeva_tool {

// How many quarter turns, clockwise, make the stream's pictures upright.
int turns_of(const AVStream& stream);

// True when planes of that format stay such planes: each of samples of one component, which are as
// far apart across as down where the turn exchanges the two.
bool can_turn(AVPixelFormat format, int quarters);

// `to` has the format, and after an odd number of quarters the exchanged sides.
void turn(const AVFrame& from, AVFrame& to, int quarters);

}  // namespace zeva_tool
