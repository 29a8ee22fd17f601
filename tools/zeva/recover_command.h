// `zeva recover`: all broken recordings of a folder are brought back, as far as they can be.
#pragma once

#include <string>

#include "terminal.h"

namespace CLI {
class App;
}

namespace zeva_tool {

struct RecoverOptions {
  std::string folder = ".";
  bool list = false;
  bool json = false;
  std::string log;
};

// Adds the subcommand; parsing `app` then fills `options`, which must outlive it.
CLI::App* add_recover_command(CLI::App& app, RecoverOptions& options);

// Returns the exit status.
int run_recover(const RecoverOptions& options, Terminal& terminal);

}  // namespace zeva_tool
