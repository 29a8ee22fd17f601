// Encoder tuning by name.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// Sets the private options "preset", "profile" and "tune" of an encoder that is not yet open. An
// encoder that has no such option, or refuses a value, is left as it was.
void apply_preset_options(AVCodecContext* ctx, int preset, int profile, int tune);

}  // namespace zeva
