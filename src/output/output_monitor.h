// The state of one output, for hosts that ask and for hosts that listen.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "zeva/outputs.h"

namespace zeva {

// Counts what becomes of packets, and reports changes of the phase. Any thread; no function waits
// for anything but a few instructions of another one, `tell_due` for the host's callback.
//
// A server that comes and goes must not flood its host: reports are a second apart at least, the
// end of a drop is told once it has lasted, and a phase that is over by then is not told at all.
class OutputMonitor {
 public:
  using Report = std::function<void(int32_t code, const std::string& text)>;
  // `waits`: the output is opened only while the recording runs.
  OutputMonitor(std::string url, Report report, bool waits);

  // A kZevaOutput... phase; `why` ends the sentence that reports it.
  void enter(int32_t phase, const std::string& why = {});
  // The same for a phase that the host is told of by other words.
  void enter_untold(int32_t phase);
  int32_t phase() const;

  // Reports what is due. Milliseconds until the next report may be, -1 when none is to come.
  int tell_due();

  void count_written(int64_t bytes, int64_t end_us);
  void count_dropped(bool picture);
  void count_reconnect() { ++reconnects; }
  void note_error(int32_t code);
  void set_disk_free(int64_t bytes) { disk_free_bytes = bytes; }

  // All but the queue and the syncs.
  void fill(ZevaOutputState& state) const;

 private:
  struct Change {
    int32_t phase = 0;
    int64_t since_us = 0;
    std::string why;
  };
  bool is_worth_telling_locked() const;
  int64_t due_us_locked() const;
  std::string text_locked() const;
  int32_t code_locked() const;
  void count_rate(int64_t bytes);

  const std::string url;
  const Report report;
  const bool waits;

  mutable std::mutex mutex;
  Change now;              // guarded by mutex
  int32_t told = 0;        // guarded by mutex; the phase that the host knows of
  int64_t told_us = 0;     // guarded by mutex
  bool was_lost = false;   // guarded by mutex; the host was not told yet that it is back
  int64_t error_us = -1;   // guarded by mutex
  int32_t error_code = 0;  // guarded by mutex
  std::atomic<bool> pending{false};
  std::atomic_flag telling = ATOMIC_FLAG_INIT;

  // Bytes written in the latest quarters of a second, in a ring; guarded by mutex.
  static constexpr int kSlots = 8;
  static constexpr int64_t kSlotUs = 250000;
  std::array<int64_t, kSlots> slots{};
  int64_t newest_slot = 0;

  std::atomic<int64_t> packets_written{0};
  std::atomic<int64_t> bytes_written{0};
  std::atomic<int64_t> packets_dropped{0};
  std::atomic<int64_t> pictures_dropped{0};
  std::atomic<int64_t> written_us{0};
  std::atomic<int64_t> disk_free_bytes{-1};
  std::atomic<int32_t> reconnects{0};
};

}  // namespace zeva
