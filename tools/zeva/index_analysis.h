// Reads a whole index, and the movie that it belongs to, and adds up what is in them.
#pragma once

#include <string>

#include "index_facts.h"
#include "status.h"

namespace zeva_tool {

// `movie_path` may be empty. Paths are UTF-8. Fails when a file cannot be read, when it is no index
// of a known version, or when it describes no stream. Damage behind that is told in the facts. With
// a movie every packet of it is read, which takes about as long as copying the file.
Status analyse_index(const std::string& index_path, const std::string& movie_path,
                     IndexFacts& facts);

}  // namespace zeva_tool
