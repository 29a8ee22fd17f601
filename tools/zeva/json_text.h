// Answers for machines: one JSON object.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "index_facts.h"

namespace zeva_tool {

// Writes the object and a line feed. Bytes of names that are no UTF-8 are replaced.
void print_json(FILE* stream, const nlohmann::ordered_json& object);
void print_json_error(FILE* stream, const std::string& sentence, int exit_status);

double json_seconds(int64_t us);  // of milliseconds' precision

nlohmann::ordered_json facts_json(const IndexFacts& facts);

}  // namespace zeva_tool
