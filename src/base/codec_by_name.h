// Encoders that the host names, instead of the ones that go with a file's ending.
#pragma once

#include <string>

#include "ffmpeg.h"

namespace zeva {

// The encoder of that name; null, with a sentence that names `field` in `fault`, when there is none
// or it does not encode that type.
const AVCodec* find_named_encoder(const char* field, const std::string& name, AVMediaType type,
                                  std::string& fault);

// False when the container is known to have no place for the codec.
bool can_hold(const AVOutputFormat& format, AVCodecID codec);

}  // namespace zeva
