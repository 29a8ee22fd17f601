// A recording whose writes are known, and the judgement of what the repair makes of its remains.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "disk_states.h"
#include "known_movie.h"
#include "write_log.h"

namespace zeva_test {

constexpr char kMovieName[] = "movie.mp4";
constexpr char kIndexName[] = "movie.mp4.index";

struct Verdict {
  std::string kind, detail;  // empty: passed
  size_t promised = 0, back = 0;
  bool repaired = false;
};

class TracedMovie {
 public:
  // The log holds a recording from its start to behind its stop.
  TracedMovie(std::string name, WriteLog log, bool journal);

  // Repairs the state in `folder`, which it empties, and reads the result. After a crash of the
  // program all is due that had been written, after a power cut what had been synced.
  Verdict judge(const DiskState& state, bool crash, const std::filesystem::path& folder) const;

  // Why the syncs before the stop were too few; empty when they were not.
  std::string sync_fault() const;

  const std::string name;
  const WriteLog log;
  const DiskStates states;
  size_t stop = 0, stopped = 0;  // places in the log

 private:
  void read_movies();
  void collect_promises();

  std::unique_ptr<KnownMovie> known;
  Movie older;  // what lay there under the same name
  // By cut, for each record of the index. What has been promised once stays so, whatever the
  // program does to its files later.
  std::vector<std::vector<bool>> after_crash, after_power_cut;
};

void write_file(const std::filesystem::path& path, const std::string& content);

// A new folder, in memory where there is such a file system, for the life of the object.
class MemoryFolder {
 public:
  MemoryFolder();
  ~MemoryFolder();
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;

  std::filesystem::path path;
};

}  // namespace zeva_test
