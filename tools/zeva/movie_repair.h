// One repair from start to judgement, as `zeva repair` and `zeva recover` do it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "repair_outcome.h"
#include "status.h"
#include "terminal.h"

namespace zeva_tool {

// Lets all that the libraries print go to the end of the file `log`, or nowhere if it is empty;
// the program's own words still reach the console and its answers.
Status quiet_libraries(const std::string& log, Terminal& terminal);

// Repairs, reads the output back, and judges. Shows how far it is on the console.
RepairOutcome repair_movie(const RepairPaths& paths, const IndexFacts& facts, Terminal& terminal);

// The summary for people and for machines.
std::string outcome_text(const IndexFacts& facts, const RepairOutcome& outcome);
nlohmann::ordered_json outcome_json(const IndexFacts& facts, const RepairOutcome& outcome);

}  // namespace zeva_tool
