// The pictures of live streams where they are to be other ones than those of the files.
#pragma once

#include <string>

#include "enc_base.h"
#include "options.h"
#include "zeva/movie_info.h"

namespace zeva {

bool has_live_output(const MovieInfo& info);
bool has_file_output(const MovieInfo& info);  // or any other that is not a live stream

// Files and streams get pictures from an encoder of their own each.
bool has_two_renditions(const MovieInfo& info, const Options& options);

// Empty when the options about streams can be kept; else a sentence that names the field.
std::string streams_fault(const MovieInfo& info, const Options& options);

// The settings of pictures for streams, from those of the files.
MovieInfo stream_settings(const MovieInfo& info, const Options& options);
// The options of their encoder. The host's own options are for the files' encoder, whose codec and
// rate control they may be about.
Options stream_options(const Options& options);

// The times of pictures for files, which are also the streams'.
struct PictureClock {
  PictureClock() = default;
  explicit PictureClock(const NewStream& files)
      : timing(files.timing), rate(files.encoder ? files.encoder->framerate : AVRational{0, 1}) {}
  void set(NewStream& streams) const;

  PictureTiming timing;
  AVRational rate{0, 1};
};

}  // namespace zeva
