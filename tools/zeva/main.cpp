// `zeva`: records movies with ZEVALib from the command line, and brings broken ones back.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <string>
#include <vector>

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

int run(int argc, char** argv) {
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
    return app.exit(error) == 0 ? zeva_tool::kExitSuccess : zeva_tool::kExitUsage;
  }
  zeva_tool::Terminal terminal;
  if (repair->parsed()) return zeva_tool::run_repair(repair_options, terminal);
  if (recover->parsed()) return zeva_tool::run_recover(recover_options, terminal);
  if (inspect->parsed()) return zeva_tool::run_inspect(inspect_options, terminal);
  if (mux->parsed()) return zeva_tool::run_mux(mux_options, terminal);
  return zeva_tool::run_record(record_options, terminal);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "zeva: %s\n", error.what());
    return zeva_tool::kExitFailure;
  }
}
