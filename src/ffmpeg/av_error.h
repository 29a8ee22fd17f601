// Small helpers around FFmpeg's calls.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// Host times enter in this unit.
inline constexpr AVRational kMicroseconds{1, 1000000};

// FFmpeg's text for `code`, at most 127 characters, valid until the thread asks for the next one.
const char* av_error_text(int code);

// Makes `frame` safe to overwrite although an encoder may still hold the picture or sound in it:
// when more than `own_refs` references to its buffers exist, it gets new ones. Returns the number
// of references that are now our own, or a negative FFmpeg code.
int release_held_buffers(AVFrame* frame, int own_refs);

}  // namespace zeva
