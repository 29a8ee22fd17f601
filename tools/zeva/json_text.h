// Answers for machines: one JSON object.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "index_facts.h"
#include "status.h"
#include "terminal.h"

namespace zeva_tool {

// The object as text, with a line feed. Bytes of names that are no UTF-8 are replaced.
std::string printed(const nlohmann::ordered_json& object);

// Tells why a command did nothing: a line on the console, and a JSON object when `json` asks for
// it. Returns `exit_status`.
int refuse(const Terminal& terminal, bool json, const Status& why, int exit_status);

// Of milliseconds' precision.
inline double json_seconds(int64_t us) {
  const int64_t ms = us / 1000;
  return static_cast<double>(ms) / 1000;
}

nlohmann::ordered_json facts_json(const IndexFacts& facts);

}  // namespace zeva_tool
