// A stream of the main output with its encoder context, configured but not yet open.
#pragma once

#include "enc_base.h"
#include "ffmpeg.h"
#include "zeva/movie_info.h"

namespace zeva {

// Adds a stream for `codec_id` to `oc` and configures `ost` from `info`; fields that the encoder
// cannot take are replaced in `info`. The encoder to open, or null when there is none for the codec
// or the stream could not be made (logged; `ost` then stays without a context).
const AVCodec* add_stream(AVFormatContext* oc, AVCodecID codec_id, OutputStream& ost,
                          MovieInfo& info);

}  // namespace zeva
