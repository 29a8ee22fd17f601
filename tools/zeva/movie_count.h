// Counts what a finished movie really holds, by reading every packet of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "status.h"

namespace zeva_tool {

struct CountedStream {
  int64_t packets = 0;
  int64_t damaged = 0;  // H.264 packets that are no row of whole NAL units
  int64_t start_us = 0;
  int64_t end_us = 0;
};

// `on_progress` is told the share of the file, 0 to 1, now and then. Streams in the file's order.
Status count_movie(const std::string& path, const std::function<void(double)>& on_progress,
                   std::vector<CountedStream>& streams);

// What the file's own table says, without reading the packets: quick, but believed.
struct MovieTable {
  int64_t packets = 0;
  int64_t duration_us = 0;
};
Status read_movie_table(const std::string& path, MovieTable& table);

}  // namespace zeva_tool
