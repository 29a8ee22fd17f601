#include "answers.h"

#include <cstdio>

#include "console_line.h"
#include "exit_status.h"

namespace zeva_tool {

void answer(const Terminal& terminal, const std::string& text) {
  fputs(text.c_str(), terminal.answers());
  fflush(terminal.answers());
}

int finish_answers(const Terminal& terminal, int exit_status) {
  if (ferror(terminal.answers()) == 0) return exit_status;
  ConsoleLine(terminal).message("the answer could not be written to standard output");
  return kExitFailure;
}

}  // namespace zeva_tool
