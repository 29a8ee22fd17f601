// What a repair brought back, judged by the movie it wrote, and what was lost and why.
#pragma once

#include <string>
#include <vector>

#include "index_facts.h"
#include "movie_count.h"
#include "repair_job.h"

namespace zeva_tool {

struct RepairOutcome {
  RepairPaths paths;
  RepairRun run;
  std::vector<CountedStream> streams;  // as many as the index describes
  std::string unreadable;              // why the output cannot be read, if it cannot
  std::vector<std::string> losses;     // a sentence each
  int exit_status = 0;

  int64_t packets() const;
  int64_t damaged() const;
  int64_t duration_us() const;
};

// Fills `losses` and `exit_status` from the rest.
void judge_repair(const IndexFacts& facts, RepairOutcome& outcome);

// Why nothing at all can be brought back; empty when something can.
std::string why_hopeless(const IndexFacts& facts);

}  // namespace zeva_tool
