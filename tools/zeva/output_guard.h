// Keeps what lies where a command is about to write.
#pragma once

#include <string>
#include <vector>

#include "status.h"
#include "terminal.h"

namespace zeva_tool {

struct GuardedOutputs {
  std::vector<std::string> paths;  // local files
  std::string index;               // that will be written beside them; may be empty
  bool replace = false;            // finished movies may be replaced without asking
  bool may_ask = true;             // standard input is the user's
};

// Refuses to write over a recording that is running, or that is unfinished and can be brought back.
// Asks before anything else that is not empty is replaced, or refuses where nobody can be asked.
Status guard_outputs(const GuardedOutputs& outputs, Terminal& terminal);

}  // namespace zeva_tool
