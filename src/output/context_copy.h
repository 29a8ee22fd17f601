// A muxer's context for a next connection.
#pragma once

#include "av_handles.h"

namespace zeva {

// A new context with the same container, address, streams and metadata as `source`, whose header
// has not been written yet. Null without memory.
FormatContextPtr copy_context(const AVFormatContext& source);

}  // namespace zeva
