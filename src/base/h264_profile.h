// Pixel formats that an H.264 profile is for.
#pragma once

#include "ffmpeg.h"
#include "zeva/movie_info.h"

namespace zeva {

// Sets a profile above "high"; the smaller ones are left as they are. False when the H.264 encoder
// does not know the profile.
bool takes_profile(AVCodecContext& enc, Profile_Level profile);

// The format to encode, so that the stream really has the profile that the encoder's options ask
// for: `given` where that is so; else the encoder's one with the profile's chroma and bit depth.
// AV_PIX_FMT_NONE when the encoder has none.
AVPixelFormat format_for_profile(const AVCodecContext& enc, AVPixelFormat given);

}  // namespace zeva
