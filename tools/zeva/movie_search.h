// Finds the unfinished recordings of a folder.
#pragma once

#include <string>
#include <vector>

#include "mp4_layout.h"
#include "status.h"

namespace zeva_tool {

struct UnfinishedMovie {
  std::string path;
  std::string index;         // beside it; empty when there is none
  bool is_recovery = false;  // by its name, what a recovery left when it was cut short
  bool is_growing = false;   // it is being recorded right now
};

// Every .mp4 of the folder itself that has no trailer, in the order of their names. Takes a second
// when one of them changed in the last seconds, to see whether it still grows.
Status find_unfinished(const std::string& folder, std::vector<UnfinishedMovie>& movies);

// movie.mp4 -> movie.recovered.mp4, movie.recovered-2.mp4, ...
std::string recovered_path(const std::string& movie, int number);

}  // namespace zeva_tool
