// The host's own options for the video encoder.
#pragma once

#include <string>

#include "ffmpeg.h"

namespace zeva {

// Applies "key=value:key=value" (FFmpeg's escaping) to an encoder that is configured but not yet
// open. Keys that libx264 has and FFmpeg has no name for count as well. Empty, or a sentence that
// names what is malformed, unknown or cannot be.
std::string apply_encoder_options(AVCodecContext& enc, const std::string& text);

}  // namespace zeva
