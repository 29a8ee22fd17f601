// The arguments that every recording command has: pace, outputs, messages.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Validator;
}  // namespace CLI

namespace zeva_tool {

struct SessionOptions {
  bool fast = false;
  std::optional<double> duration_s;

  std::string output;
  std::vector<std::string> also;
  std::string index;
  bool no_index = false;
  bool keep_index = false;
  bool replace = false;  // existing files, without asking
  std::vector<std::string> meta;

  bool json = false;
  bool require_streams = false;
  double stream_keep_s = 3;
  double keep_free_mb = 64;
  std::string spill;

  std::string log;
  std::optional<int> log_level;
  bool verbose = false;
};

void add_pace_options(CLI::App& command, SessionOptions& options, const char* group);
void add_output_options(CLI::App& command, SessionOptions& options, const char* main_help,
                        const char* also_help);
void add_stream_options(CLI::App& command, SessionOptions& options);
void add_message_options(CLI::App& command, SessionOptions& options);

// Validators whose own words stay out of the help; their refusals name the range.
CLI::Validator int_in_range(int min, int max);
CLI::Validator number_in_range(double min, double max);

extern const char* const kKeysAndExitHelp;

// The same recording into one file only, with its usual index.
template <typename Options>
Options into_file(Options options, const std::string& path) {
  options.output = path;
  options.also.clear();
  options.index.clear();
  options.spill.clear();
  return options;
}

// All outputs, the main one first.
std::vector<std::string> output_urls(const SessionOptions& options);

// Where the crash-safe index goes; empty for none.
std::string index_path(const SessionOptions& options);

// The items of --meta as the library takes them.
std::string meta_text(const SessionOptions& options);

}  // namespace zeva_tool
