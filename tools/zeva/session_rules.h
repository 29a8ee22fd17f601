// What the arguments shared by the recording commands must obey, checked before anything is opened.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "av.h"
#include "session_options.h"
#include "status.h"

namespace zeva_tool {

// What the library's settings record has room for.
struct SessionLimits {
  size_t further_outputs;
  size_t url_bytes;
  size_t index_bytes;
  size_t meta_bytes;
};

// `inputs` are the files read, each with the argument that names it; none may be written too.
Status check_session_options(const SessionOptions& options, const SessionLimits& limits,
                             const std::vector<std::pair<std::string, std::string>>& inputs);

// Whether packets of the codec can be put into the container.
bool can_hold(AVOutputFormat* container, AVCodecID codec);

}  // namespace zeva_tool
