// Puts the settings record of a recording together from the arguments and from what the source is.
#pragma once

#include "frame_source.h"
#include "record_options.h"
#include "zeva/movie_info.h"

namespace zeva_tool {

// The result refers to strings of `options`.
MovieInfo make_settings(const RecordOptions& options, const SourceFormat& source);

}  // namespace zeva_tool
