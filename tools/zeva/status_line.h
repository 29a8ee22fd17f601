// What the user sees while recording: one line, redrawn in place on a terminal, or a line now and
// then in a file or a pipe. For a program: a JSON object a second on standard output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "console_line.h"
#include "terminal.h"
#include "zeva/outputs.h"

namespace zeva_tool {

struct Progress {
  int64_t movie_us = 0;
  bool has_pictures = false;
  int64_t pictures = 0;
  int64_t dropped = 0;
  size_t failures = 0;
  bool paused = false;
  std::vector<ZevaOutputState> outputs;  // as far as they are known
  ZevaStatistics statistics{};           // likewise
};

class StatusLine {
 public:
  // `terminal` must outlive the line; its console is taken anew for every output.
  StatusLine(const Terminal& terminal, std::vector<std::string> outputs, bool json);

  // For a program: the last object, with the exit status.
  void finish(const Progress& progress, int exit_status);

  // Shows the progress if it is time for it.
  void update(const Progress& progress);
  int64_t interval_us() const;

  // As ConsoleLine has them.
  void message(const std::string& text) { line.message(text); }
  void clear() { line.clear(); }

 private:
  void measure_rate(const Progress& progress, int64_t now_us);
  std::string text(const Progress& progress) const;
  std::string output_states(const Progress& progress) const;

  const Terminal& terminal;
  ConsoleLine line;
  std::vector<std::string> outputs;
  const bool json;
  int64_t shown_us = 0;
  bool was_paused = false;
  int64_t rate_from_us = 0;
  int64_t rate_from_pictures = 0;
  bool rate_measured = false;
  double pictures_per_second = 0;
};

}  // namespace zeva_tool
