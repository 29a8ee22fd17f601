#include "mux_command.h"

#include "exit_status.h"
#include "mux_rules.h"
#include "packet_recording.h"
#include "packet_source.h"
#include "session.h"

namespace zeva_tool {

int run_mux(const MuxOptions& options, Terminal& terminal) {
  StatusLine line(terminal, output_urls(options));
  Status status = check_mux_options(options);
  if (!status.ok()) {
    line.message(status.sentence());
    return kExitUsage;
  }
  PacketSource source(options, terminal);
  PacketRecording recording(options, source);
  return run_session({options, source, recording, options.pcm}, terminal, line);
}

}  // namespace zeva_tool
