// The host's packets of one stream on their way into a demuxer.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "zv_packet_queue.h"

namespace zeva {

// Sorts packets by time stamp, holds them for the demuxer, and holds their time stamps
// (microseconds) beside them. Owns the packets. `push_data` may be called from any thread,
// `read_packet` and `set_name` on the thread that demuxes.
class InputQueue : public qel::ZVPacketQueue {
 public:
  InputQueue() = default;
  ~InputQueue() override;

  // Copies one packet. It leaves the sorting once five later ones have come; a null `data` or
  // `nbytes` < 1 lets all of them go. Waits up to 50 ms a packet when the queue is full, then drops
  // the oldest. False when the stream has ended or there is no memory.
  bool push_data(const void* data, int32_t nbytes, int64_t usec);

  // The I/O callback of the demuxer; `opaque` is an InputQueue. Blocks until there are bytes or the
  // stream ends; while the stream is not known, not for more than 3 s or some megabytes.
  static int read_packet(void* opaque, uint8_t* buffer, int size);

  // The input format, "uninit" before it was opened.
  std::string name();
  void set_name(const std::string& format);

  qel::BlockingQueue<int64_t> pts_queue;  // stamps of the nodes that were queued, in their order
  std::atomic<bool> probed{false};        // stream information was found; no time limit on reads

 protected:
  void on_pushed(qel::ZVMemNode*& node) override;

 private:
  bool sort_in_locked(const void* data, int32_t nbytes, int64_t usec);
  void queue_oldest_locked();
  int read_some(uint8_t* buffer, int size);

  void give_up_probing(int64_t waited_ms);

  // Demuxing thread only.
  int64_t read_bytes = 0;
  int given_up = 0;  // an FFmpeg code once no stream was found

  std::atomic<int32_t> largest_packet{0};

  std::mutex sort_mutex;
  std::map<int64_t, qel::ZVMemNode*> sort_queue;  // guarded by sort_mutex

  std::mutex name_mutex;
  std::string format_name = "uninit";  // guarded by name_mutex
};

}  // namespace zeva
