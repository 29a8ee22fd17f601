// A stream of the main output with its encoder context, configured but not yet open.
#pragma once

#include "enc_base.h"
#include "ffmpeg.h"
#include "options.h"
#include "zeva/movie_info.h"

namespace zeva {

// The nearest whole rate, at least one picture a second.
int nearest_fps(AVRational rate);

// Adds a stream for `codec_id` to `oc` and configures its encoder from `info` and `options`; fields
// that the encoder cannot take are replaced in `info`, while an option that it cannot take is a
// fault. `bounded`: the pictures' bit rate keeps within a bound, unless it is a constant quantiser.
// Without an encoder when there is none for the codec or the stream could not be made (logged).
NewStream add_stream(AVFormatContext* oc, AVCodecID codec_id, MovieInfo& info,
                     const Options& options = {}, bool bounded = false);

}  // namespace zeva
