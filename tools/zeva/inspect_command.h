// `zeva inspect`: what an index says, and how much of it a movie file holds.
#pragma once

#include <string>

#include "terminal.h"

namespace CLI {
class App;
}

namespace zeva_tool {

struct InspectOptions {
  std::string index;
  std::string movie;
  bool json = false;
};

// Adds the subcommand; parsing `app` then fills `options`, which must outlive it.
CLI::App* add_inspect_command(CLI::App& app, InspectOptions& options);

// Returns the exit status.
int run_inspect(const InspectOptions& options, Terminal& terminal);

}  // namespace zeva_tool
