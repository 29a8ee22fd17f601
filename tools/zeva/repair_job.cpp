#include "repair_job.h"

#include <filesystem>
#include <utility>

#include "zeva/repair.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr size_t kMostReports = 16;
constexpr int64_t kLookAgainUs = 20000;  // the end of a repair wakes nobody

// FFmpeg would take what stands before a colon in a bare file name for a protocol.
std::string protocol_free(const std::string& path) {
  fs::path name = fs::u8path(path);
  return name.has_root_path() ? path : (fs::path(".") / name).u8string();
}

}  // namespace

// Room is made beforehand, so that a report of missing memory needs none.
RepairJob::RepairJob(Terminal& the_terminal, ProgressBar& the_bar)
    : terminal(the_terminal), bar(the_bar) {
  failures.reserve(kMostReports);
}

RepairRun RepairJob::run(const RepairPaths& paths) {
  void* repair = ZEVA_StartRepair_Async(paths.broken.c_str(), paths.index.c_str(),
                                        protocol_free(paths.output).c_str(), receive, this);
  RepairRun result;
  while (repair && !is_over(repair) && !Terminal::stop_requested()) {
    terminal.wait(kLookAgainUs);
    bar.update(share);
  }
  result.stopped_by_user = Terminal::stop_requested() && !is_over(repair);
  ZEVA_StopRepair(&repair);
  bar.clear();
  std::lock_guard<std::mutex> lock(mutex);
  result.failures = std::move(failures);
  return result;
}

// Every repair reports at least once before it ends, so that one that has not begun is not taken
// for one that is over.
bool RepairJob::is_over(void* repair) const { return reported && !ZEVA_Repair_IsRunning(repair); }

void RepairJob::receive(double progress, int code, const char* message, void* user) noexcept {
  auto* job = static_cast<RepairJob*>(user);
  job->share = progress;
  if (code != 0) job->put(make_report(code, message));
  job->reported = true;
}

void RepairJob::put(Report report) {
  std::lock_guard<std::mutex> lock(mutex);
  if (failures.size() < kMostReports) failures.push_back(std::move(report));
}

}  // namespace zeva_tool
