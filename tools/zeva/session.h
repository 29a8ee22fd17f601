// One run of a recording command, from its checked arguments to its exit status: messages, folders,
// source, recording, and a look at what was written.
#pragma once

#include "recording.h"
#include "session_options.h"
#include "source.h"
#include "spill.h"
#include "status_line.h"
#include "terminal.h"

namespace zeva_tool {

struct Session {
  const SessionOptions& options;
  Source& source;
  Recording& recording;
  Spill& spill;
  bool stdin_is_data = false;  // then it is not a keyboard
};

// Returns the exit status.
int run_session(const Session& session, Terminal& terminal, StatusLine& line);

}  // namespace zeva_tool
