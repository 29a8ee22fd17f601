// Rebuilds a movie from a recording without its trailer and the recording's index.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "av_handles.h"
#include "moov_parser.h"
#include "packet_recovery.h"
#include "repair_output.h"
#include "zeva/repair.h"

namespace zeva {

inline constexpr int kBrokenFileCode = -1;
inline constexpr int kIndexFileCode = -2;
inline constexpr int kStoppedCode = -5;
inline constexpr int kOutputCode = -10;

// One repair. Owns both input files and the worker thread. `start` or `run` is
// called once; `stop` and `is_running` may be called from any thread.
class MvRepair {
 public:
  struct Paths {
    std::string broken, moov, output;
  };

  // `progress` may be null. `user` is handed to it, never used.
  MvRepair(ZEVA_repair_callback progress, void* user);
  ~MvRepair();
  MvRepair(const MvRepair&) = delete;
  MvRepair& operator=(const MvRepair&) = delete;

  // On a thread of its own. False, with a report, after a stop.
  bool start(Paths paths);
  // On the calling thread. True when the output was finished.
  bool run(const Paths& paths);

  // Ends the repair before its next line and waits for it. False, after telling it to end, on the
  // repair's own thread, which cannot wait for itself.
  bool stop();
  bool is_running() const { return running; }

 private:
  bool refuse_stopped();
  bool repair(const Paths& paths);
  bool is_an_input(const Paths& paths) const;
  int rebuild(const std::string& output_path);
  void copy_records(RepairOutput& output);
  void process_line(RepairOutput& output);
  bool copy_packet(RepairOutput& output, const IndexedPacket& packet);
  bool write_packet(RepairOutput& output, const IndexedPacket& packet);
  void log_read_failure(const IndexedPacket& packet) const;
  void log_place(const IndexedPacket& packet) const;
  void log_losses() const;
  void report_progress();
  void report(double progress, int code, const char* message);

  ZEVA_repair_callback progress_callback;
  void* user;
  std::atomic<bool> stopped{false};
  std::atomic<bool> running{false};
  std::atomic<std::thread::id> worker_id{std::thread::id()};  // while start()'s thread runs

  // The repair's thread only.
  MoovParser parser;
  PacketRecovery recovery;
  int64_t lost_packets = 0;
  int64_t dependent_packets = 0;

  std::thread worker;  // last: it uses the rest
};

}  // namespace zeva
