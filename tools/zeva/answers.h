// The program's answers, on standard output; one that could not be written is a failure.
#pragma once

#include <string>

#include "terminal.h"

namespace zeva_tool {

// Writes all of `text` now. finish_answers() tells whether that worked.
void answer(const Terminal& terminal, const std::string& text);

// `exit_status`, but kExitFailure and a line on the console when an answer could not be written.
int finish_answers(const Terminal& terminal, int exit_status);

}  // namespace zeva_tool
