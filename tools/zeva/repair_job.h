// Runs one repair by the library, follows it, and ends it early when the user wants that.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "progress_bar.h"
#include "status_inbox.h"
#include "terminal.h"

namespace zeva_tool {

struct RepairPaths {
  std::string broken;
  std::string index;
  std::string output;
};

struct RepairRun {
  bool stopped_by_user = false;
  std::vector<Report> failures;  // the library's own reports
};

class RepairJob {
 public:
  // Both must outlive the job.
  RepairJob(Terminal& the_terminal, ProgressBar& the_bar);

  // Blocks until the output is finished. Once, on the main thread.
  RepairRun run(const RepairPaths& paths);

 private:
  static void receive(double progress, int code, const char* message, void* user) noexcept;
  void put(Report report);
  bool is_over(void* repair) const;

  Terminal& terminal;
  ProgressBar& bar;
  // Written by the repair's thread:
  std::atomic<double> share{0};
  std::atomic<bool> reported{false};
  std::mutex mutex;
  std::vector<Report> failures;  // guarded by mutex
};

}  // namespace zeva_tool
