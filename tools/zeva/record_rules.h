// What `zeva record` refuses before anything is opened: arguments that contradict each other, and
// recordings that the library would not do well.
#pragma once

#include "record_options.h"
#include "status.h"

namespace zeva_tool {

// The first refusal, a sentence that names the argument.
Status check_record_options(const RecordOptions& options);

// Which streams the main output can take and the user wants.
bool wants_video(const RecordOptions& options);
bool wants_audio(const RecordOptions& options);

}  // namespace zeva_tool
