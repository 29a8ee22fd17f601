// What is to be done about one unfinished movie of a folder.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "index_facts.h"
#include "movie_search.h"

namespace zeva_tool {

struct RecoveryPlan {
  enum class State {
    kRecoverable,
    kRecovered,  // already, as `output`
    kGrowing,    // being recorded right now
    kLeftover,   // itself a recovery that was cut short
    kNoIndex,
    kUnreadable,
    kHopeless,  // there is an index, but nothing can come of it
  };

  State state = State::kNoIndex;
  UnfinishedMovie movie;
  IndexFacts facts;
  int64_t bytes = 0;
  std::string output;  // to be made, or made before
  std::string reason;  // why it is hopeless or unreadable
};

RecoveryPlan plan_recovery(const UnfinishedMovie& movie);

// One line for people: name, in a column of that width, length, size, and what can be recovered.
std::string plan_text(const RecoveryPlan& plan, size_t name_columns);
nlohmann::ordered_json plan_json(const RecoveryPlan& plan);

}  // namespace zeva_tool
