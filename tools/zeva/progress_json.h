// A running recording for programs that drive the command: one JSON object a line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "status_line.h"

namespace zeva_tool {

// The recording and each of its outputs, by the addresses the user gave. What the library could not
// be asked for is left out.
nlohmann::ordered_json progress_json(const Progress& progress,
                                     const std::vector<std::string>& urls);

// As text of one line, with its line feed. Bytes of names that are no UTF-8 are replaced.
std::string json_line(const nlohmann::ordered_json& object);

}  // namespace zeva_tool
