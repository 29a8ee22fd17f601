// Choosing container and codecs of the main output.
#pragma once

#include <exception>
#include <string>

#include "av_handles.h"
#include "zeva/movie_info.h"

namespace zeva {

// What ends an opening; its code and text reach the host's status callback.
class ZVException : public std::exception {
 public:
  ZVException(int code, std::string message) : code(code), message(std::move(message)) {}
  const char* what() const noexcept override { return message.c_str(); }

  const int code;

 private:
  const std::string message;
};

enum OpeningCode {
  kOpenedCode = 0,
  kNoContextCode = 10,
  kNoUrlCode = 11,
  kNoFormatCode = 12,
  kAlreadyExitedCode = 20,
  kOpeningFailedCode = 21,
};

struct CodecChoice {
  AVCodecID video = AV_CODEC_ID_NONE;
  AVCodecID audio = AV_CODEC_ID_NONE;
};

// The output context for `url`, which decides on the container. Null when FFmpeg gave none. Throws
// ZVException.
FormatContextPtr create_output_context(const char* url);

// The codecs for the container or stream, without those that are disabled; sets the transport
// options of live streams.
CodecChoice choose_codecs(AVFormatContext* oc, const MovieInfo& info);

}  // namespace zeva
