// How far a long piece of work is, and how long it will still take.
#pragma once

#include <cstdint>
#include <string>

#include "console_line.h"

namespace zeva_tool {

class ProgressBar {
 public:
  // `what` stands before the bar. The terminal must outlive it.
  ProgressBar(const Terminal& terminal, std::string what);
  ~ProgressBar() { clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows `share`, 0 to 1, if it is time for it: often on a terminal, a line now and then
  // elsewhere.
  void update(double share);
  void clear() { line.clear(); }

 private:
  std::string text(double share, int64_t elapsed_us) const;

  const Terminal& terminal;
  ConsoleLine line;
  std::string what;
  int64_t begun_us;
  int64_t shown_us;
};

}  // namespace zeva_tool
