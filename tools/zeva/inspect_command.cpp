#include "inspect_command.h"

#include <CLI/CLI.hpp>

#include "answers.h"
#include "exit_status.h"
#include "index_analysis.h"
#include "inspect_text.h"
#include "json_text.h"

namespace zeva_tool {
namespace {

constexpr const char* kFooter =
    "Examples:\n"
    "  zeva inspect movie.mp4.index\n"
    "  zeva inspect movie.mp4.index movie.mp4 --json\n"
    "\n"
    "Exit status: 0 when the index was read, 1 when it cannot be, 2 for wrong usage, 3 when "
    "something\n"
    "in the middle is lost. With MOVIE the whole movie is read.\n";

}  // namespace

CLI::App* add_inspect_command(CLI::App& app, InspectOptions& options) {
  CLI::App* command = app.add_subcommand("inspect", "Tell what a recording's index holds");
  command->footer(kFooter);
  command->add_option("index", options.index, "The index, e.g. movie.mp4.index")
      ->type_name("INDEX")
      ->required();
  command->add_option("movie", options.movie, "The movie, to see how much of it is really there")
      ->type_name("MOVIE");
  command->add_flag("--json", options.json, "One JSON object on standard output");
  return command;
}

int run_inspect(const InspectOptions& options, Terminal& terminal) {
  IndexFacts facts;
  Status status = analyse_index(options.index, options.movie, facts);
  if (!status.ok()) return refuse(terminal, options.json, status, kExitFailure);
  answer(terminal, options.json ? printed(facts_json(facts)) : facts_text(facts));
  return finish_answers(terminal, facts.is_damaged() ? kExitPartly : kExitSuccess);
}

}  // namespace zeva_tool
