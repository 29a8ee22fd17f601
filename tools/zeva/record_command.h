// `zeva record`: checks the arguments, records, and judges what came out.
#pragma once

#include "record_options.h"
#include "terminal.h"

namespace zeva_tool {

// Returns the exit status.
int run_record(const RecordOptions& options, Terminal& terminal);

}  // namespace zeva_tool
