// `zeva repair`: one broken movie and its index become a finished movie.
#pragma once

#include <string>

#include "terminal.h"

namespace CLI {
class App;
}

namespace zeva_tool {

struct RepairOptions {
  std::string broken;
  std::string index;
  std::string output;
  bool replace = false;
  bool json = false;
  std::string log;
};

// Adds the subcommand; parsing `app` then fills `options`, which must outlive it.
CLI::App* add_repair_command(CLI::App& app, RepairOptions& options);

// Returns the exit status.
int run_repair(const RepairOptions& options, Terminal& terminal);

}  // namespace zeva_tool
