// The output context of a further writer.
#pragma once

#include <string>

#include "av_handles.h"
#include "writer_base.h"

namespace zeva {

// Makes an output context for `url` with the streams of `main_context`, its I/O open (`interrupt`
// only for network URLs). On failure `context` is null and the result tells code and text.
struct ClonedContext {
  FormatContextPtr context;
  WriterResult result;
};
ClonedContext clone_output_context(const AVFormatContext* main_context, const char* url,
                                   const AVIOInterruptCB& interrupt);

}  // namespace zeva
