// Choosing container and codecs of the main output.
#pragma once

#include "ffmpeg.h"
#include "zeva/movie_info.h"

namespace zeva {

// Codes of the status callback.
enum OpeningCode {
  kOpenedCode = 0,
  kNoContextCode = 10,
  kNoUrlCode = 11,
  kNoFormatCode = 12,
  kOpeningFailedCode = 21,
};

struct CodecChoice {
  AVCodecID video = AV_CODEC_ID_NONE;
  AVCodecID audio = AV_CODEC_ID_NONE;
};

// The codecs for the container or stream, without those that are disabled.
CodecChoice choose_codecs(const AVOutputFormat& format, const MovieInfo& info);

}  // namespace zeva
