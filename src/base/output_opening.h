// Choosing container and codecs of the main output.
#pragma once

#include <exception>
#include <string>

#include "ffmpeg.h"
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

// The codecs for the container or stream, without those that are disabled.
CodecChoice choose_codecs(const AVOutputFormat& format, const MovieInfo& info);

}  // namespace zeva
