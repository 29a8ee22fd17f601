// Looks at a finished recording from outside.
#pragma once

#include <cstdint>
#include <string>

#include "status.h"

namespace zeva_tool {

// True when the file (UTF-8 path, no FIFO or device) exists, holds something, and opens in the
// container that its name promises, if that container can be read at all.
Status check_movie_file(const std::string& path);

// As above, and the movie is `length_us` long but for the tolerance; tells files that stopped
// growing before the others from finished ones.
Status check_movie_length(const std::string& path, int64_t length_us, int64_t tolerance_us);

}  // namespace zeva_tool
