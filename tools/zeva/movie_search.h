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
  std::string unreadable;    // why nobody can say more about it; empty for most
};

// Every movie of the folder itself that has no trailer, in the order of their names: files with an
// ending of the MP4 family, and files of no known ending that begin like an MP4. Movies that cannot
// be read are among them. A recorder keeps its index locked; for one that does not, this takes a
// second when a movie changed in the last seconds, to see whether it still grows.
Status find_unfinished(const std::string& folder, std::vector<UnfinishedMovie>& movies);

// The index of a movie, by the names that `zeva record` and others give it; empty when there is
// none.
std::string find_index(const std::string& movie);

// movie -> movie.recovered.mp4, movie.mp4 -> movie.recovered.mp4, movie.recovered-2.mp4, ...
std::string recovered_path(const std::string& movie, int number);

}  // namespace zeva_tool
