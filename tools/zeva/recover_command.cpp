#include "recover_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

#include "answers.h"
#include "exit_status.h"
#include "json_text.h"
#include "movie_repair.h"
#include "recovery_plan.h"
#include "text_format.h"

namespace zeva_tool {
namespace {

using State = RecoveryPlan::State;

constexpr const char* kFooter =
    "Looks at every MP4 of the folder that has no trailer, and at its kin such as .mov, .m4v and\n"
    ".m4a. Its index is beside it: movie.mp4.index or movie.index. movie.mp4 is recovered into\n"
    "movie.recovered.mp4. Nothing is ever overwritten or deleted: a movie that is recovered\n"
    "already is left alone, and if its recovery was cut short the new one is\n"
    "movie.recovered-2.mp4. A movie that is being recorded right now is left alone too.\n"
    "\n"
    "Ctrl-C ends early; the movie at work becomes a finished, shorter one.\n"
    "\n"
    "Examples:\n"
    "  zeva recover\n"
    "  zeva recover --list /media/recordings\n"
    "\n"
    "Exit status: that of the worst movie. 0 when nothing had to be recovered or all that the\n"
    "files hold came back, 1 when a movie could not be recovered at all or not be read, 2 for "
    "wrong\n"
    "usage, 3 when some is lost: the summary says what and why. What the crash took along before "
    "it\n"
    "reached the disk, at most the last moment, is in neither file. With --list only a folder or\n"
    "movie that cannot be read makes it 1.\n";

// From what is well to what is lost.
int worse(int a, int b) {
  auto rank = [](int status) { return status == kExitSuccess ? 0 : status == kExitPartly ? 1 : 2; };
  return rank(a) >= rank(b) ? a : b;
}

// The whole run over the movies of a folder.
class Recovery {
 public:
  Recovery(const RecoverOptions& the_options, Terminal& the_terminal)
      : options(the_options), terminal(the_terminal) {}

  int run(const std::vector<UnfinishedMovie>& movies) {
    for (const UnfinishedMovie& movie : movies) plans.push_back(plan_recovery(movie));
    size_t name_columns = 0;
    for (const RecoveryPlan& plan : plans) {
      name_columns = std::max(name_columns, column_count(plan.movie.path));
    }
    for (const RecoveryPlan& plan : plans) say(plan_text(plan, name_columns) + "\n");
    if (plans.empty()) say("every movie of " + options.folder + " is finished\n");
    for (const RecoveryPlan& plan : plans) settle(plan);
    if (options.json) print_summary();
    return finish_answers(terminal, exit_status);
  }

 private:
  void settle(const RecoveryPlan& plan) {
    nlohmann::ordered_json json = plan_json(plan);
    if (!options.list) {
      if (plan.state == State::kRecoverable) recover(plan, json);
      if (plan.state == State::kNoIndex || plan.state == State::kHopeless) {
        exit_status = worse(exit_status, kExitFailure);
      }
    }
    if (plan.state == State::kUnreadable) exit_status = worse(exit_status, kExitFailure);
    results.push_back(json);
  }

  void recover(const RecoveryPlan& plan, nlohmann::ordered_json& json) {
    if (Terminal::stop_requested()) {
      say("\n" + plan.movie.path + ": not recovered, as the program was told to stop\n");
      exit_status = worse(exit_status, kExitPartly);
      return;
    }
    RepairOutcome outcome =
        repair_movie({plan.movie.path, plan.movie.index, plan.output}, plan.facts, terminal);
    say("\n" + plan.movie.path + ": " + outcome_text(plan.facts, outcome));
    json["repair"] = outcome_json(plan.facts, outcome);
    exit_status = worse(exit_status, outcome.exit_status);
  }

  void say(const std::string& text) {
    if (options.json) return;
    answer(terminal, text);
  }

  void print_summary() {
    nlohmann::ordered_json json;
    json["folder"] = options.folder;
    json["movies"] = results;
    json["exit_status"] = exit_status;
    answer(terminal, printed(json));
  }

  const RecoverOptions& options;
  Terminal& terminal;
  std::vector<RecoveryPlan> plans;
  nlohmann::ordered_json results = nlohmann::ordered_json::array();
  int exit_status = kExitSuccess;
};

}  // namespace

CLI::App* add_recover_command(CLI::App& app, RecoverOptions& options) {
  CLI::App* command = app.add_subcommand("recover", "Bring back the broken movies of a folder");
  command->footer(kFooter);
  command->add_option("folder", options.folder, "Where the movies and their indexes are")
      ->type_name("FOLDER")
      ->capture_default_str();
  command->add_flag("--list", options.list, "Only tell what could be recovered");
  command->add_flag("--json", options.json, "One JSON object on standard output");
  command->add_option("--log", options.log, "Append the library's messages to this file")
      ->type_name("FILE");
  return command;
}

int run_recover(const RecoverOptions& options, Terminal& terminal) {
  std::vector<UnfinishedMovie> movies;
  Status status = find_unfinished(options.folder, movies);
  if (status.ok()) status = quiet_libraries(options.log, terminal);
  if (!status.ok()) return refuse(terminal, options.json, status, kExitFailure);
  terminal.catch_signals();
  return Recovery(options, terminal).run(movies);
}

}  // namespace zeva_tool
