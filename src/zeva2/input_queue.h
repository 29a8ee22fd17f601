// The host's packets of one stream on their way to the worker.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "input_signal.h"
#include "zv_packet_queue.h"

namespace zeva {

// The times of a packet, in microseconds.
struct PacketTimes {
  int64_t dts = 0;       // what packets are sorted by
  int64_t delay = 0;     // of the presentation against it
  int64_t duration = 0;  // 0: as long as the packet itself says
  bool exact = false;    // not to be smoothed
};

// Sorts packets by time stamp and holds them for the worker. Owns the packets. Pushing may be done
// by any thread, everything else is the worker's.
class InputQueue : public qel::ZVPacketQueue {
 public:
  InputQueue() = default;
  ~InputQueue() override;

  // Copies one packet with one time. It leaves the sorting once five later ones have come, or after
  // half a second at the latest; a null `data` or `nbytes` < 1 lets all of them go. Waits up to 50
  // ms a packet when the queue is full, then drops the oldest. False when the stream has ended or
  // was left out, or there is no memory.
  bool push_data(const void* data, int32_t nbytes, int64_t usec);
  // The same with all its times. Packets of the same time keep their order when they are exact;
  // others move up by a microsecond.
  bool push_timed(const void* data, int32_t nbytes, const PacketTimes& times);
  // Appends to the packet that was pushed last. False when that is not sorted any more.
  bool append_to_newest(const void* data, size_t nbytes);

  // True when the input was left out. The worker is told that the host has packets for it.
  bool refuses();
  bool is_left_out() const { return left_out; }

  // Takes nothing any more, and forgets what there is.
  void leave_out();
  // True once, when packets have come for an input that was left out.
  bool came_late();

  // Queues what has been sorted for long enough. Milliseconds until the next packet has, -1 when
  // none is sorted.
  int64_t release_due();

  static PacketTimes times_of(const qel::ZVMemNode& node);

  // The input format, "uninit" before it is opened; any thread.
  std::string name();
  void set_name(const std::string& format);

  // Also told when a packet begins to be sorted. Must outlive the queue. Set before it is used.
  void set_signal(InputSignal* told);

 private:
  struct Sorted {
    qel::ZVMemNode* node;
    int64_t since_us;  // of the steady clock
  };
  using SortQueue = std::multimap<int64_t, Sorted>;

  bool sort_in_locked(const void* data, int32_t nbytes, PacketTimes times);
  void queue_oldest_locked();

  InputSignal* signal = nullptr;
  std::atomic<bool> left_out{false};
  std::atomic<bool> late{false};
  bool late_told = false;  // the worker's

  std::mutex sort_mutex;
  SortQueue sort_queue;        // guarded by sort_mutex
  SortQueue::iterator newest;  // guarded by sort_mutex; valid while has_newest
  bool has_newest = false;     // guarded by sort_mutex

  std::mutex name_mutex;
  std::string format_name = "uninit";  // guarded by name_mutex
};

}  // namespace zeva
