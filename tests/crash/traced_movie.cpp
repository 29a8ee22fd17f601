#include "traced_movie.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "zeva/zeva.h"

namespace zeva_test {
namespace fs = std::filesystem;
namespace {

constexpr size_t kSmallHoleBytes = 64;

// Returns whether the repair says that it succeeded.
bool repair(const DiskState& state, const fs::path& folder, const fs::path& out) {
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove(entry.path());
  if (state.has_movie) write_file(folder / kMovieName, state.movie);
  if (state.has_index) write_file(folder / kIndexName, state.index);
  return ZEVA_StartRepair_sync((folder / kMovieName).c_str(), (folder / kIndexName).c_str(),
                               out.c_str(), nullptr, nullptr);
}

}  // namespace

TracedMovie::TracedMovie(std::string given_name, WriteLog given_log, bool journal)
    : name(std::move(given_name)),
      log(std::move(given_log)),
      states(log, kMovieName, kIndexName, journal),
      stop(log.mark("stop")),
      stopped(log.mark("stopped") + 1) {
  if (stopped > log.operations.size()) throw std::runtime_error("the stop has no mark");
  read_movies();
  collect_promises();
}

void TracedMovie::read_movies() {
  const MemoryFolder folder;
  const fs::path movie_file = folder.path / kMovieName;
  write_file(movie_file, log.last_content(log.last_file(kMovieName)));
  known = std::make_unique<KnownMovie>(movie_file, log.last_content(log.last_file(kIndexName)));
  const auto found = log.names.find(kMovieName);
  if (found != log.names.end()) {
    write_file(movie_file, log.before[static_cast<size_t>(found->second)]);
    older = read_movie(movie_file);
  }
}

void TracedMovie::collect_promises() {
  std::vector<bool> written(known->records().size()), synced(written);
  after_crash.push_back(written);
  after_power_cut.push_back(synced);
  for (size_t cut = 1; cut < states.cuts(); ++cut) {
    const Operation::Kind kind = log.operations[cut - 1].kind;
    if (kind == Operation::kWrite) {
      known->add_records_in(states.written(kIndexName, cut), nullptr, written);
    }
    if (kind == Operation::kSyncEnd) {
      const std::string movie = states.synced(kMovieName, cut);
      known->add_records_in(states.synced(kIndexName, cut), &movie, synced);
    }
    after_crash.push_back(written);
    after_power_cut.push_back(synced);
  }
}

std::string TracedMovie::sync_fault() const {
  const auto& safe = after_power_cut[stop];
  const auto count = static_cast<size_t>(std::count(safe.begin(), safe.end(), true));
  if (count * 4 >= safe.size()) return "";
  return "only " + std::to_string(count) + " of " + std::to_string(safe.size()) +
         " packets were synced before the stop";
}

Verdict TracedMovie::judge(const DiskState& state, bool crash, const fs::path& folder) const {
  Verdict verdict;
  const fs::path out = folder / "repaired.mp4";
  verdict.repaired = repair(state, folder, out);
  const Movie movie = verdict.repaired ? read_movie(out) : Movie{};
  verdict.back = movie.packets();
  const Match newer = match(movie, known->movie());
  // Until its end has come to the disk, an older recording of the same name may still be there.
  const bool is_older = older.packets() > 0 && match(movie, older).fault.empty();
  if (!newer.fault.empty() && !is_older) {
    verdict.kind = newer.hole_bytes == 0                ? "wrong packet"
                   : newer.hole_bytes < kSmallHoleBytes ? "packet with a small hole"
                                                        : "packet with a hole";
    verdict.detail = newer.fault;
  }
  const auto& promised = (crash ? after_crash : after_power_cut)[state.cut];
  size_t lost = 0;
  for (size_t i = 0; i < promised.size(); ++i) {
    if (!promised[i]) continue;
    const KnownMovie::Record& record = known->records()[i];
    ++verdict.promised;
    if (!newer.fault.empty() || !newer.found[record.track][record.number]) ++lost;
  }
  const bool due = lost > 0 || state.cut >= stopped;
  if (!verdict.kind.empty() || !due) return verdict;
  if (state.has_movie && read_movie(folder / kMovieName) == known->movie()) return verdict;
  if (lost > 0) {
    verdict.kind = state.names_lost ? "lost with the name" : "lost";
    verdict.detail = std::to_string(lost) + " of " + std::to_string(verdict.promised) +
                     " promised packets did not come back";
  } else {
    verdict.kind = "not whole after the stop";
    verdict.detail = "the movie as it stands is not the recorded one";
  }
  return verdict;
}

void write_file(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

MemoryFolder::MemoryFolder() {
  static std::atomic<int> count{0};
  const fs::path memory = fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path();
  path = memory / ("zeva-power-" + std::to_string(getpid()) + "-" + std::to_string(count++));
  fs::create_directories(path);
}

MemoryFolder::~MemoryFolder() {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

}  // namespace zeva_test
