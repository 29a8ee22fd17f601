// A few rows of a picture as a picture of their own.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// `view` has no buffers of its own: it points to `rows` rows of `picture` from `y` on, which is
// even.
void point_to_rows(AVFrame& view, const AVFrame& picture, int y, int rows);

}  // namespace zeva
