#include "repair_command.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>

#include "answers.h"
#include "exit_status.h"
#include "file_check.h"
#include "index_analysis.h"
#include "json_text.h"
#include "movie_repair.h"
#include "output_guard.h"
#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr const char* kFooter =
    "Ctrl-C ends the repair early; what was recovered so far becomes a finished, shorter movie. A\n"
    "second Ctrl-C ends the program at once. The broken movie and its index are only read. An "
    "output\n"
    "that exists already is replaced when the answer to the question is y, or with -y; without a\n"
    "terminal to ask on it is refused.\n"
    "\n"
    "Example:\n"
    "  zeva repair movie.mp4 movie.mp4.index -o whole.mp4\n"
    "\n"
    "Exit status: 0 when all that the two files hold came back, 1 when nothing could be "
    "recovered,\n"
    "2 for wrong usage, 3 when some of it is lost: the summary says what and why. What the crash\n"
    "took along before it reached the disk, at most the last moment, is in neither file.\n";

Status check_usage(const RepairOptions& options) {
  if (!is_local_file(options.output)) {
    return Status("--output " + options.output + ": only a file can be made");
  }
  if (!further_container(options.output)) {
    return Status("--output " + options.output + ": no container has this ending");
  }
  for (const std::string* input : {&options.broken, &options.index}) {
    if (same_file(local_path(options.output), *input)) {
      return Status("--output " + options.output + " and " + *input +
                    " are the same file, which must not be overwritten");
    }
  }
  if (!same_file(options.broken, options.index)) return {};
  return Status(options.broken + " and " + options.index +
                " are the same file; the movie and its index are wanted");
}

Status check_output(const RepairOptions& options) {
  std::error_code error;
  fs::path output = fs::u8path(local_path(options.output));
  if (fs::is_directory(output, error)) return Status(options.output + " is a folder");
  fs::path folder = output.parent_path();
  if (folder.empty() || fs::is_directory(folder, error)) return {};
  return Status("the folder of " + options.output + " does not exist");
}

}  // namespace

CLI::App* add_repair_command(CLI::App& app, RepairOptions& options) {
  CLI::App* command =
      app.add_subcommand("repair", "Make a finished movie of a broken one and its index");
  command->footer(kFooter);
  command->add_option("broken", options.broken, "The movie without its trailer")
      ->type_name("BROKEN")
      ->required();
  command->add_option("index", options.index, "Its index, e.g. movie.mp4.index")
      ->type_name("INDEX")
      ->required();
  command->add_option("-o,--output", options.output, "The movie to make; its name decides its kind")
      ->type_name("OUT")
      ->required();
  command->add_flag("-y,--yes,--force", options.replace, "Replace an existing file without asking");
  command->add_flag("--json", options.json, "One JSON object on standard output");
  command->add_option("--log", options.log, "Append the library's messages to this file")
      ->type_name("FILE");
  return command;
}

int run_repair(const RepairOptions& options, Terminal& terminal) {
  Status status = check_usage(options);
  if (!status.ok()) return refuse(terminal, options.json, status, kExitUsage);
  terminal.catch_signals();
  IndexFacts facts;
  status = analyse_index(options.index, options.broken, facts);
  if (status.ok()) status = check_output(options);
  if (status.ok()) status = Status(why_hopeless(facts));
  if (status.ok()) {
    status = guard_outputs({{local_path(options.output)}, "", options.replace, true}, terminal);
  }
  if (status.ok()) status = quiet_libraries(options.log, terminal);
  if (!status.ok()) return refuse(terminal, options.json, status, kExitFailure);
  RepairOutcome outcome =
      repair_movie({options.broken, options.index, local_path(options.output)}, facts, terminal);
  answer(terminal,
         options.json ? printed(outcome_json(facts, outcome)) : outcome_text(facts, outcome));
  return finish_answers(terminal, outcome.exit_status);
}

}  // namespace zeva_tool
