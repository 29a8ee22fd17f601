#include "session_options.h"

#include <CLI/CLI.hpp>

#include "output_url.h"

namespace zeva_tool {
namespace {

constexpr const char* kOutputs = "Outputs";
constexpr const char* kMessages = "Messages";

}  // namespace

const char* const kKeysAndExitHelp =
    "Keys while recording from a terminal: p pauses and resumes, q stops. Ctrl-C stops too; the\n"
    "movie is finished in every case. A second Ctrl-C ends the program at once.\n"
    "\n"
    "An output that exists already is replaced when the answer to the question is y, or with -y;\n"
    "without a terminal to ask on it is refused. An unfinished recording that `zeva recover` can\n"
    "still bring back is never replaced.\n"
    "\n"
    "A stream beside a file never hurts the file: it is waited for, drops pictures that its "
    "server\n"
    "does not take, and is tried again when it breaks, for as long as the recording runs.\n"
    "\n"
    "Exit status: 0 when every file and every required stream was finished, 1 when something\n"
    "failed, 2 for wrong usage.\n";

CLI::Validator int_in_range(int min, int max) { return CLI::Range(min, max).description(""); }

CLI::Validator number_in_range(double min, double max) {
  return CLI::Range(min, max).description("");
}

void add_pace_options(CLI::App& command, SessionOptions& o, const char* group) {
  command.add_flag("--fast", o.fast, "As fast as the machine can, not at real speed")->group(group);
  command.add_option("--duration", o.duration_s, "Stop after this much movie time")
      ->type_name("SEC")
      ->check(number_in_range(0.001, 1e9))
      ->group(group);
}

void add_output_options(CLI::App& command, SessionOptions& o, const char* main_help,
                        const char* also_help) {
  command.add_option("-o,--output", o.output, main_help)
      ->type_name("URL")
      ->required()
      ->group(kOutputs);
  command.add_option("--also", o.also, also_help)
      ->type_name("URL")
      ->allow_extra_args(false)
      ->group(kOutputs);
  command
      .add_option(
          "--index", o.index,
          "Crash-safe index of the first output that is an MP4 or one of its kin, such as .mov "
          "or .m4a (default: its name and .index)")
      ->type_name("PATH")
      ->group(kOutputs);
  command.add_flag("--no-index", o.no_index, "Write no index")->group(kOutputs);
  command.add_flag("--keep-index", o.keep_index, "Keep the index of a finished movie")
      ->group(kOutputs);
  command.add_flag("-y,--yes", o.replace, "Replace existing files without asking")->group(kOutputs);
  command.add_option("--meta", o.meta, "Metadata item key:value, repeatable")
      ->type_name("K:V")
      ->allow_extra_args(false)
      ->group(kOutputs);
}

void add_stream_options(CLI::App& command, SessionOptions& o) {
  command
      .add_flag("--require-streams", o.require_streams,
                "A stream that cannot be opened or breaks ends the recording (default: one beside "
                "a file is waited for and tried again)")
      ->group(kOutputs);
  command
      .add_option("--stream-keep", o.stream_keep_s,
                  "What may wait for a slow server before pictures are dropped")
      ->type_name("SEC")
      ->capture_default_str()
      ->check(number_in_range(0.1, 3600))
      ->group(kOutputs);
  command
      .add_option("--keep-free", o.keep_free_mb,
                  "Finish a file while this much of its disk is free; 0: when it is full")
      ->type_name("MIB")
      ->capture_default_str()
      ->check(number_in_range(0, 1e9))
      ->group(kOutputs);
  command
      .add_option("--spill", o.spill,
                  "Go on in a file of this folder when a file ends early or its disk fails")
      ->type_name("FOLDER")
      ->group(kOutputs);
}

void add_message_options(CLI::App& command, SessionOptions& o) {
  command.add_option("--log", o.log, "Append the library's messages to this file")
      ->type_name("FILE")
      ->group(kMessages);
  command.add_option("--log-level", o.log_level, "0 least to 6 everything (default: 4 with --log)")
      ->type_name("N")
      ->check(int_in_range(0, 6))
      ->group(kMessages);
  command
      .add_flag("--json", o.json,
                "The state of the recording and its outputs, a JSON object a second on standard "
                "output")
      ->group(kMessages);
  command.add_flag("--verbose", o.verbose, "Let the libraries' messages through to the console")
      ->group(kMessages);
}

std::vector<std::string> output_urls(const SessionOptions& options) {
  std::vector<std::string> urls{options.output};
  urls.insert(urls.end(), options.also.begin(), options.also.end());
  return urls;
}

std::string index_path(const SessionOptions& options) {
  if (options.no_index) return {};
  if (!options.index.empty()) return options.index;
  for (const std::string& url : output_urls(options)) {
    if (takes_index(url)) return local_path(url) + ".index";
  }
  return {};
}

std::string meta_text(const SessionOptions& options) {
  std::string text;
  for (const std::string& item : options.meta) text += (text.empty() ? "" : ";") + item;
  return text;
}

}  // namespace zeva_tool
