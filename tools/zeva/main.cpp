// `zeva`: records movies with ZEVALib from the command line, and brings broken ones back.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "answers.h"
#include "av.h"
#include "exit_status.h"
#include "inspect_command.h"
#include "mux_command.h"
#include "mux_options.h"
#include "record_command.h"
#include "record_options.h"
#include "recover_command.h"
#include "repair_command.h"
#include "terminal.h"

namespace {

std::string version_text() {
  unsigned version = avformat_version();
  return "zeva " ZEVA_TOOL_VERSION " (FFmpeg libavformat " +
         std::to_string(AV_VERSION_MAJOR(version)) + "." +
         std::to_string(AV_VERSION_MINOR(version)) + "." +
         std::to_string(AV_VERSION_MICRO(version)) + ")";
}

// Help and version are answers; everything else is a complaint.
int explain(const CLI::App& app, const CLI::ParseError& error,
            const zeva_tool::Terminal& terminal) {
  std::ostringstream answers;
  std::ostringstream complaints;
  const bool wrong = app.exit(error, answers, complaints) != 0;
  fputs(complaints.str().c_str(), terminal.console());
  zeva_tool::answer(terminal, answers.str());
  return zeva_tool::finish_answers(terminal,
                                   wrong ? zeva_tool::kExitUsage : zeva_tool::kExitSuccess);
}

int run(int argc, char** argv, zeva_tool::Terminal& terminal) {
  CLI::App app{"Records pictures and sound with ZEVALib, and brings broken recordings back.",
               "zeva"};
  app.set_version_flag("--version", version_text(), "Print the version and exit");
  app.allow_windows_style_options(false);  // "/videos" is a folder on every system
  app.require_subcommand(1);
  zeva_tool::RecordOptions record_options;
  zeva_tool::add_record_command(app, record_options);
  zeva_tool::RepairOptions repair_options;
  const CLI::App* repair = zeva_tool::add_repair_command(app, repair_options);
  zeva_tool::RecoverOptions recover_options;
  const CLI::App* recover = zeva_tool::add_recover_command(app, recover_options);
  zeva_tool::InspectOptions inspect_options;
  const CLI::App* inspect = zeva_tool::add_inspect_command(app, inspect_options);
  zeva_tool::MuxOptions mux_options;
  CLI::App* mux = zeva_tool::add_mux_command(app, mux_options);

  std::vector<std::string> arguments = zeva_tool::Terminal::arguments(argc, argv);
  std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    return explain(app, error, terminal);
  }
  if (repair->parsed()) return zeva_tool::run_repair(repair_options, terminal);
  if (recover->parsed()) return zeva_tool::run_recover(recover_options, terminal);
  if (inspect->parsed()) return zeva_tool::run_inspect(inspect_options, terminal);
  if (mux->parsed()) return zeva_tool::run_mux(mux_options, terminal);
  return zeva_tool::run_record(record_options, terminal);
}

// A failure anywhere is told where the user reads, also when standard error leads to a log.
int run_guarded(int argc, char** argv) {
  zeva_tool::Terminal terminal;
  try {
    return run(argc, argv, terminal);
  } catch (const std::bad_alloc&) {
    fputs("zeva: there is not enough memory\n", terminal.console());
  } catch (const std::exception& error) {
    fprintf(terminal.console(), "zeva: %s\n", error.what());
  }
  return zeva_tool::kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
  zeva_tool::Terminal::occupy_standard_streams();
  try {
    return run_guarded(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "zeva: %s\n", error.what());
    return zeva_tool::kExitFailure;
  }
}
