// Puts the settings of a recording together from the arguments and from what the source is.
#pragma once

#include <string>

#include "frame_source.h"
#include "record_options.h"
#include "zeva/movie_info.h"
#include "zeva/options.h"

namespace zeva_tool {

// `movie` refers to strings of the arguments.
struct RecordSettings {
  MovieInfo movie{};
  bool variable_rate = false;
  AVRational rate{0, 1};
  int channels = 0;  // of the movie's sound
  int source_matrix = AVCOL_SPC_UNSPECIFIED;
  int source_range = AVCOL_RANGE_UNSPECIFIED;
  std::string video_codec;
  std::string audio_codec;
  std::string encoder_options;
  int stream_bitrate = 0;  // bits per second, of an encoder for the streams
  int stream_floor = 0;    // likewise
  PictureSize stream_size;

  // Goes to the library beside `movie`; refers to these settings.
  ZevaOptions options() const;
};

RecordSettings make_settings(const RecordOptions& options, const SourceFormat& source);

}  // namespace zeva_tool
