// `zeva`: records movies with ZEVALib from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "av.h"
#include "exit_status.h"
#include "mux_command.h"
#include "mux_options.h"
#include "record_command.h"
#include "record_options.h"
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
  CLI::App app{"Records pictures and sound with ZEVALib.", "zeva"};
  app.set_version_flag("--version", version_text(), "Print the version and exit");
  app.require_subcommand(1);
  zeva_tool::RecordOptions record_options;
  zeva_tool::add_record_command(app, record_options);
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
