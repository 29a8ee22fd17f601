// The encoders of a recording: those that were asked for; else H.264 and AAC in every container
// that movies of them are usual in, and what FFmpeg takes in the others.
#pragma once

#include <string>

#include "av.h"
#include "colours.h"
#include "record_options.h"

namespace zeva_tool {

// One stream's codec in the main output.
struct StreamCodec {
  AVCodecID id = AV_CODEC_ID_NONE;   // none: the container has no such stream
  const AVCodec* encoder = nullptr;  // null: there is none here
  bool by_name = false;              // the library must be told, as it would take another one
};

struct OutputCodecs {
  StreamCodec video;
  StreamCodec audio;
};

// `o.video_codec` and `o.audio_codec` are known to find_encoder, or empty.
OutputCodecs main_codecs(const RecordOptions& o);

// By the name of an encoder (libx264) or of a codec (h264); null if there is none for the kind of
// stream.
const AVCodec* find_encoder(const std::string& name, AVMediaType type);

// True when pictures of the profile need not be cut down to 8 bits.
bool needs_depth(const std::string& profile);

// The pixel format in which the encoder makes pictures of the profile, for a source of so many bits
// a component; AV_PIX_FMT_NONE when it makes none.
AVPixelFormat profile_format(const AVCodec& encoder, const std::string& profile, int source_bits);

// The colours that the movie's encoder and profile allow.
ColourLimits colour_limits(const RecordOptions& o);

// Where rate control, profile and further settings are libx264's own.
bool is_x264(const StreamCodec& codec);

// How many channels the encoder takes of a source's, into an output of this URL.
int encoded_channels(const AVCodec& encoder, const std::string& url, int source_channels);

// True when every picture can keep its own time in the recording's outputs.
bool times_are_free(const RecordOptions& o);

}  // namespace zeva_tool
