// Cuts the power at every point of short recordings, and judges what the repair makes of the disk.
//
//   power_cut_states [--states N] [--seed N] [--setups NAME] [--every-prefix] [--seconds S]
//                    [--journal]
//   power_cut_states --log FOLDER/NAME.log [--state NUMBER]    states of a log that was kept
//
// Each recording is made once, by this program in a process of its own whose every write and sync
// is logged. The states of the disk are then made from the log, as many as are asked for, in
// memory. A state passes when the repair gives nothing that was not recorded, and all of these:
//   - after a crash of the program: every packet whose record had been written;
//   - after a power failure: every packet whose record and bytes a completed sync covers, unless
//     the movie is whole as it stands;
//   - once the stop has returned: the movie is whole as it stands.
// The logs are kept in work/power_cut_states until the next run. Ends with 77 where processes may
// not be traced.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

#include "traced_movie.h"
#include "traced_recordings.h"
#include "write_tracer.h"
#include "zeva/zeva.h"

namespace {
using namespace zeva_test;  // NOLINT: as in the tests
namespace fs = std::filesystem;

constexpr int kSkipped = 77;
constexpr size_t kMostFaults = 50;  // printed

struct Options {
  size_t states = 560;
  uint64_t seed = 1;
  std::string setups, state, seconds = "4";
  fs::path log;
  bool every_prefix = false;
  bool journal = false;
};

FILE* g_report = nullptr;  // the library's own words on standard output are left out

std::string content_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Made on a disk, whose syncs take their time while other threads write.
WriteLog record(const TracedSetup& setup, const std::string& seconds, const fs::path& work) {
  const fs::path folder = work / setup.name;
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string self = fs::read_symlink("/proc/self/exe");
  if (setup.over_older) trace_writes({self, "--record", folder, kOlderSetup, "1"}, folder);
  WriteLog log = trace_writes({self, "--record", folder, setup.name, seconds}, folder);
  for (const char* name : {kMovieName, kIndexName}) {
    const fs::path path = folder / name;
    if (fs::exists(path) && log.last_content(log.last_file(name)) != content_of(path)) {
      throw std::runtime_error(std::string("the log does not add up to ") + name);
    }
  }
  log.save(work / (std::string(setup.name) + ".log"));
  return log;
}

// Numbers of states: "prefix:17" and "random:4711".
DiskState make_state(const TracedMovie& recording, const std::string& number, uint64_t seed,
                     bool* crash) {
  const auto colon = number.find(':');
  const uint64_t n = std::strtoull(number.c_str() + colon + 1, nullptr, 10);
  *crash = number.compare(0, colon, "prefix") == 0;
  if (*crash) return recording.states.exact(std::min<size_t>(n, recording.states.cuts() - 1));
  return recording.states.random(recording.name + '/' + std::to_string(seed) + '/' + number);
}

struct Totals {
  size_t states = 0, crashes = 0, in_stop = 0, stopped = 0, repaired = 0;
  size_t promised = 0, back = 0, faults = 0;
  void add(const Totals& t) {
    states += t.states, crashes += t.crashes, in_stop += t.in_stop, stopped += t.stopped;
    repaired += t.repaired, promised += t.promised, back += t.back;
    faults += t.faults;
  }
};

class Run {
 public:
  explicit Run(const Options& given) : options(given) {}

  Totals of(const TracedMovie& recording) {
    const size_t cuts = recording.states.cuts();
    std::vector<std::string> numbers;
    for (size_t i = 0; i < (options.every_prefix ? cuts : options.states / 4); ++i) {
      const size_t cut =
          options.every_prefix ? i : i * cuts / std::max<size_t>(1, options.states / 4);
      numbers.push_back("prefix:" + std::to_string(cut));
    }
    while (numbers.size() < options.states) {
      numbers.push_back("random:" + std::to_string(numbers.size()));
    }
    if (!options.state.empty()) numbers = {options.state};
    Totals totals;
    std::atomic<size_t> next{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < std::max(1U, std::thread::hardware_concurrency()); ++t) {
      threads.emplace_back([&] {
        const MemoryFolder folder;
        for (size_t i; (i = next++) < numbers.size();) {
          one(recording, numbers[i], folder.path, totals);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    return totals;
  }

 private:
  void one(const TracedMovie& recording, const std::string& number, const fs::path& folder,
           Totals& totals) {
    bool crash = false;
    const DiskState state = make_state(recording, number, options.seed, &crash);
    const Verdict verdict = recording.judge(state, crash, folder);
    const std::lock_guard<std::mutex> lock(mutex);
    Totals mine;
    mine.states = 1;
    mine.crashes = crash ? 1 : 0;
    mine.stopped = state.cut >= recording.stopped ? 1 : 0;
    mine.in_stop = state.cut > recording.stop && mine.stopped == 0 ? 1 : 0;
    mine.repaired = verdict.repaired ? 1 : 0;
    mine.promised = verdict.promised;
    mine.back = verdict.back;
    mine.faults = verdict.kind.empty() ? 0 : 1;
    totals.add(mine);
    if (mine.faults == 0 || ++printed > kMostFaults) return;
    fprintf(g_report, "%s %s, cut at %zu of %zu%s, movie %s, index %s: %s: %s\n",
            recording.name.c_str(), number.c_str(), state.cut, recording.log.operations.size(),
            mine.in_stop != 0 ? " in the stop" : "", loss_name(state.movie_loss),
            loss_name(state.index_loss), verdict.kind.c_str(), verdict.detail.c_str());
  }

  const Options& options;
  std::mutex mutex;
  size_t printed = 0;  // guarded by mutex
};

void print_row(const std::string& name, const Totals& t) {
  fprintf(g_report, "| %-18s | %6zu | %6zu | %6zu | %6zu | %6zu | %9zu | %9zu | %6zu |\n",
          name.c_str(), t.states, t.crashes, t.in_stop, t.stopped, t.repaired, t.promised, t.back,
          t.faults);
}

int judge_all(const std::vector<std::unique_ptr<TracedMovie>>& recordings, const Options& options) {
  Run run(options);
  Totals all;
  bool failed = recordings.empty();
  std::vector<std::pair<std::string, Totals>> rows;
  for (const auto& recording : recordings) {
    if (recording == nullptr) {
      failed = true;
      continue;
    }
    const std::string fault = recording->sync_fault();
    if (!fault.empty()) fprintf(g_report, "%s: %s\n", recording->name.c_str(), fault.c_str());
    failed = failed || !fault.empty();
    rows.emplace_back(recording->name, run.of(*recording));
    all.add(rows.back().second);
  }
  fprintf(
      g_report,
      "| recording          | states |  crash |   stop |  after | repair |  promised |      back "
      "| faults |\n|---|---|---|---|---|---|---|---|---|\n");
  for (const auto& [name, totals] : rows) print_row(name, totals);
  print_row("all", all);
  return failed || all.faults > 0 || all.promised == 0 ? 1 : 0;
}

std::vector<std::unique_ptr<TracedMovie>> record_all(const Options& options) {
  std::vector<TracedSetup> chosen;
  for (const TracedSetup& setup : traced_setups()) {
    if (std::string(setup.name).find(options.setups) != std::string::npos) chosen.push_back(setup);
  }
  const fs::path work = fs::current_path() / "work" / "power_cut_states";
  std::vector<std::unique_ptr<TracedMovie>> recordings(chosen.size());
  std::atomic<bool> refused{false};
  std::vector<std::thread> threads;  // each traces a program of its own
  for (size_t i = 0; i < chosen.size(); ++i) {
    threads.emplace_back([&, i] {
      try {
        recordings[i] = std::make_unique<TracedMovie>(
            chosen[i].name, record(chosen[i], options.seconds, work), options.journal);
      } catch (const TracingRefused&) {
        refused = true;
      } catch (const std::exception& e) {
        fprintf(g_report, "%s: %s\n", chosen[i].name, e.what());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  if (refused) throw TracingRefused("no right to trace a process");
  return recordings;
}

int judge_log(const Options& options) {
  std::vector<std::unique_ptr<TracedMovie>> one;
  one.push_back(std::make_unique<TracedMovie>(options.log.stem(), WriteLog::load(options.log),
                                              options.journal));
  return judge_all(one, options);
}

bool parse(int count, char** words, Options& options) {
  for (int i = 1; i < count; ++i) {
    const std::string word = words[i];
    if (word == "--every-prefix") {
      options.every_prefix = true;
      continue;
    }
    if (word == "--journal") {
      options.journal = true;
      continue;
    }
    if (++i == count) return false;
    if (word == "--states") options.states = std::strtoull(words[i], nullptr, 10);
    if (word == "--seconds") options.seconds = words[i];
    if (word == "--seed") options.seed = std::strtoull(words[i], nullptr, 10);
    if (word == "--setups") options.setups = words[i];
    if (word == "--log") options.log = words[i];
    if (word == "--state") options.state = words[i];
  }
  return true;
}

}  // namespace

int main(int word_count, char** words) {
  if (word_count == 5 && strcmp(words[1], "--record") == 0) {
    return record_traced(words[3], words[2], std::strtod(words[4], nullptr));
  }
  Options options;
  if (!parse(word_count, words, options)) return 2;
  g_report = fdopen(dup(STDOUT_FILENO), "w");
  setvbuf(g_report, nullptr, _IOLBF, 0);
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nothing, STDOUT_FILENO);
  ZEVA_Log_Level(-1);
  try {
    if (!options.log.empty()) return judge_log(options);
    const auto recordings = record_all(options);
    const size_t count = std::max<size_t>(1, recordings.size());
    options.states = (options.states + count - 1) / count;
    return judge_all(recordings, options);
  } catch (const TracingRefused& e) {
    fprintf(g_report, "%s\n", e.what());
    return kSkipped;
  } catch (const std::exception& e) {
    fprintf(g_report, "%s\n", e.what());
    return 1;
  }
}
