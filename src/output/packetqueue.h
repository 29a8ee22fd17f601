// Bounded queue of encoded packets between the threads that make them and one output's writer.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

#include "ffmpeg.h"

namespace zeva {

// First in, first out; packets share their payloads, nothing is copied. Owns the packets in it. Any
// thread puts (the stopping thread puts the tailer) or aborts, one consumer gets.
class PacketQueue {
 public:
  PacketQueue() { tailer(); }
  ~PacketQueue();
  PacketQueue(const PacketQueue&) = delete;
  PacketQueue& operator=(const PacketQueue&) = delete;

  // Appends without a limit, also to an aborted queue. 0, or -1 when out of memory.
  int put(AVPacket* packet);

  // Appends while fewer than `max_packets` are queued. 0; -1 aborted or out of memory; -2 full and
  // `block` is false. The caller keeps its packet on success; on failure the packet has been
  // released and must not be used again.
  int put_bounded(AVPacket* packet, uint32_t max_packets, bool block);

  // Moves the oldest packet into `packet`. 1; 0 empty and `block` is false; -1 aborted, even when
  // packets are left.
  int get(AVPacket* packet, bool block) { return get_within(packet, block ? kForever : 0); }
  // The same, waiting for `timeout_ms` at most.
  static constexpr int kForever = -1;
  int get_within(AVPacket* packet, int timeout_ms);

  // Makes every waiter return, and every later bounded put and get fail. Cannot be undone.
  void abort();

  int nb_packets() const;

  // The one packet of the process that marks the end of a recording; every copy of it does too. It
  // owns nothing and must not be referenced or unreferenced.
  static AVPacket* tailer();
  static bool is_tailer(const AVPacket& packet);

  // Releases what `packet` holds, unless it is a tailer.
  static void safe_free(AVPacket* packet);

 private:
  int wait_for_place(std::unique_lock<std::mutex>& lock, uint32_t max_packets, bool block);
  int append_locked(AVPacket* packet);

  // Guarded by mutex.
  std::deque<AVPacket> packets;
  bool abort_request = false;

  mutable std::mutex mutex;
  std::condition_variable not_empty;
  std::condition_variable not_full;
};

}  // namespace zeva
