// Settings a recording cannot be made with.
#pragma once

#include <string>

#include "zeva/movie_info.h"

namespace zeva {

// Empty when `info` can be used; else one sentence that names the field. What an encoder or a muxer
// refuses by itself with a clear text is left to it.
std::string settings_fault(const MovieInfo& info);

}  // namespace zeva
