// The one line of the console that is redrawn in place, and the lines that stay above it.
//
// On a terminal draw() replaces what it drew before; elsewhere every draw is a line of its own. One
// thread.
#pragma once

#include <cstddef>
#include <string>

#include "terminal.h"

namespace zeva_tool {

class ConsoleLine {
 public:
  // `terminal` must outlive the line; its console is taken anew for every output.
  explicit ConsoleLine(const Terminal& the_terminal) : terminal(the_terminal) {}

  void draw(std::string text);

  // Takes the drawn line away.
  void clear();

  // A line of its own that stays, "zeva: " before it.
  void message(const std::string& text);

 private:
  const Terminal& terminal;
  size_t drawn_columns = 0;
};

}  // namespace zeva_tool
