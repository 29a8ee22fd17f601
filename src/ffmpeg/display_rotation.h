// How far a player turns the pictures of a stream: its display matrix (ISO/IEC 14496-12, 6.2.2).
#pragma once

#include "ffmpeg.h"

namespace zeva {

// In degrees clockwise: 0, 90, 180 or 270. Anything between is taken for the nearest of them.
int display_rotation(const AVStream& stream);

// Before the stream's header is written. Anything but 90, 180 and 270 leaves the stream as it is.
// 0, or a negative FFmpeg code when there is no memory.
int set_display_rotation(AVStream* stream, int degrees);

}  // namespace zeva
