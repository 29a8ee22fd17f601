// What `zeva mux` refuses: arguments that contradict each other, and outputs that cannot hold what
// the source brings.
#pragma once

#include "mux_options.h"
#include "status.h"

namespace zeva_tool {

// The first refusal, a sentence that names the argument. Before anything is opened.
Status check_mux_options(const MuxOptions& options);

// Once it is known what the source brings.
Status check_containers(const MuxOptions& options, bool has_pictures, bool has_sound);

}  // namespace zeva_tool
