// Bounded queue of encoded packets between the threads that make them and one output's writer.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

#include "ffmpeg.h"

namespace zeva {

// First in, first out; packets share their payloads, nothing is copied. Owns the packets in it. Any
// thread puts (the stopping thread puts the tailer) or aborts, one consumer gets.
class PacketQueue {
 public:
  // How much may be queued. Time is that from the oldest packet to the newest.
  struct Limits {
    uint32_t packets = UINT32_MAX;
    int64_t us = INT64_MAX;
    int64_t bytes = INT64_MAX;
  };
  struct Backlog {
    int64_t packets = 0;
    int64_t us = 0;
    int64_t bytes = 0;
    bool reaches(const Limits& limits) const {
      return packets >= limits.packets || us >= limits.us || bytes >= limits.bytes;
    }
  };

  PacketQueue() { tailer(); }
  ~PacketQueue();
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  // Appends without a limit, also to an aborted queue. `time_us` is the packet's in the movie. 0,
  // or -1 when out of memory.
  int put(AVPacket* packet, int64_t time_us = 0);

  // Appends while what is queued is below the limits. 0; -1 aborted or out of memory; -2 full and
  // `block` is false. The caller keeps its packet on success; on failure the packet has been
  // released and must not be used again.
  int put_bounded(AVPacket* packet, const Limits& limits, bool block, int64_t time_us = 0);

  // Moves the oldest packet into `packet`. 1; 0 empty and `block` is false; -1 aborted, even when
  // packets are left.
  int get(AVPacket* packet, bool block) { return get_within(packet, block ? kForever : 0); }
  // The same, waiting for `timeout_ms` at most.
  static constexpr int kForever = -1;
  int get_within(AVPacket* packet, int timeout_ms);

  // Makes every waiter return, and every later bounded put and get fail. Cannot be undone.
  void abort();
  // From now on no put waits: the limits count no more. Cannot be undone.
  void stop_waiting();
  // Takes out all packets but an end marker, handing each to `drop` before it is released.
  void clear(const std::function<void(const AVPacket&)>& drop);

  int nb_packets() const { return static_cast<int>(backlog().packets); }
  Backlog backlog() const;
  // With the time up to a packet of `time_us`, which may not be queued.
  Backlog backlog_until(int64_t time_us) const;

  // The one packet of the process that marks the end of a recording; every copy of it does too. It
  // owns nothing and must not be referenced or unreferenced.
  static AVPacket* tailer();
  static bool is_tailer(const AVPacket& packet);

  // Releases what `packet` holds, unless it is a tailer.
  static void safe_free(AVPacket* packet);

 private:
  struct Entry {
    AVPacket packet;
    int64_t time_us;
  };
  int wait_for_place(std::unique_lock<std::mutex>& lock, const Limits& limits, bool block);
  int append_locked(AVPacket* packet, int64_t time_us);
  Backlog backlog_locked() const;

  // Guarded by mutex.
  std::deque<Entry> entries;
  int64_t bytes = 0;
  bool abort_request = false;
  bool never_waits = false;

  mutable std::mutex mutex;
  std::condition_variable not_empty;
  std::condition_variable not_full;
};

}  // namespace zeva
