// Short recordings at real speed, for a program whose writes are traced.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zeva_test {

// "movie.mp4" and "movie.mp4.index" in `folder`, through the classic or the packet interface. Sets
// the marks "stop" and "stopped" around the stop. Returns the program's exit status.
int record_traced(const std::string& setup, const std::filesystem::path& folder, double seconds);

struct TracedSetup {
  const char* name;
  bool packets = false;
  bool pictures = true;
  bool sound = true;
  int bitrate_kbit = 600;
  int gop = 25;
  bool pause = false;
  bool reordered = false;   // B-frames
  bool behind = false;      // another output comes first
  bool over_older = false;  // files of an older recording lie there under the same names
};
const std::vector<TracedSetup>& traced_setups();
constexpr char kOlderSetup[] = "older";

}  // namespace zeva_test
