// The colours of a recording: those that the movie is tagged with, and those of the host's
// pictures.
#pragma once

#include <string>

#include "options.h"
#include "picture_format.h"
#include "zeva/movie_info.h"

namespace zeva {

// A sentence that names the field when the settings name colours that do not exist; empty for none.
std::string colours_fault(const MovieInfo& info, const Options& options);

// Gives the encoder the tags that the settings ask for.
void request_colours(AVCodecContext& enc, const MovieInfo& info);

// Decides matrix and range of the movie, once the encoder's pixel format is known, and writes them
// into the encoder and the settings. Unspecified, the matrix is that of the host's pictures and the
// range the one that the pixel format implies, else the limited one, as players expect. A sentence
// when the host's pictures cannot be converted to them; empty for none.
std::string settle_colours(AVCodecContext& enc, MovieInfo& info, const Options& options);

// The pictures that the host announced, of which `info` has the movie's settled colours.
PictureFormat host_pictures(const MovieInfo& info, const Options& options);

}  // namespace zeva
