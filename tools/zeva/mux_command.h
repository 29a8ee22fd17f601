// `zeva mux`.
#pragma once

#include "mux_options.h"
#include "terminal.h"

namespace zeva_tool {

// Returns the exit status.
int run_mux(const MuxOptions& options, Terminal& terminal);

}  // namespace zeva_tool
