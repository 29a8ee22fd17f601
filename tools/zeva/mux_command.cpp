#include "mux_command.h"

#include <memory>

#include "exit_status.h"
#include "mux_rules.h"
#include "packet_recording.h"
#include "packet_source.h"
#include "session.h"

namespace zeva_tool {

int run_mux(const MuxOptions& options, Terminal& terminal) {
  StatusLine line(terminal, output_urls(options), options.json);
  Status status = check_mux_options(options);
  if (!status.ok()) {
    line.message(status.sentence());
    return kExitUsage;
  }
  PacketSource source(options, terminal);
  PacketRecording recording(options, source);
  MuxOptions elsewhere;
  Spill spill(options.spill, [&](const std::string& path) {
    elsewhere = into_file(options, path);
    return std::make_unique<PacketRecording>(elsewhere, source);
  });
  return run_session({options, source, recording, spill, options.pcm}, terminal, line);
}

}  // namespace zeva_tool
