// Packets on their way to the writer thread of one output, under its policy.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "drop_gate.h"
#include "output_monitor.h"
#include "output_policy.h"
#include "packetqueue.h"

namespace zeva {

// Waits, drops or fails when it is full, as the policy says; without a connection nothing waits.
// `put` is called by one thread a stream, `get_within`, `connect` and `disconnect` by the writer
// thread, the rest by any.
class OutputQueue {
 public:
  struct Stream {
    AVRational time_base{0, 1};  // of the packets that are put
    bool pictures = false;
    bool reorders = false;  // pictures are decoded in another order than they are shown
  };

  // `waits`: there is no connection at first.
  OutputQueue(const OutputPolicy& policy, OutputMonitor& monitor, bool waits);

  // Before the first put.
  void set_streams(std::vector<Stream> of_output) { streams = std::move(of_output); }
  // By the index of a packet; null for none.
  const Stream* stream(int index) const;
  const std::vector<Stream>& all_streams() const { return streams; }

  // Called on any thread when the stream needs a key picture to go on. Before the first put.
  void on_key_wanted(std::function<void()> ask) { ask_for_key = std::move(ask); }

  // Queues a reference to the packet or drops it. 0, or -1 when nothing is taken any more.
  int put(const AVPacket& packet, bool interleave);

  // The end of the packets, behind all that is queued.
  void end() { packets.put(PacketQueue::tailer()); }
  // From now on a full queue makes nobody wait.
  void stop_waiting() { packets.stop_waiting(); }
  // Takes and gives nothing any more; what is queued counts as dropped.
  void abort();
  int get_within(AVPacket* packet, int timeout_ms) {
    return packets.get_within(packet, timeout_ms);
  }

  // There is a connection. True when the stream begins anew, with a key picture.
  bool connect();
  // It is lost; what is queued is dropped.
  void disconnect();

  // The policy is to fail when full, and it was.
  bool has_overflowed() const { return overflowed; }
  PacketQueue::Backlog backlog() const { return packets.backlog(); }

 private:
  int put_or_wait(const AVPacket& packet, int64_t time_us, bool interleave);
  int put_or_drop(const AVPacket& packet, int64_t time_us);
  void drop(const AVPacket& packet);
  void drop_all();
  void note_phase();
  void ask_if_wanted(bool wanted) const;

  const OutputPolicy policy;
  OutputMonitor& monitor;
  std::vector<Stream> streams;
  std::function<void()> ask_for_key;
  PacketQueue packets;
  std::atomic<bool> overflowed{false};
  std::atomic<bool> flowing;  // the gate lets everything through
  std::mutex gate_mutex;      // held while gate and queue change together
  DropGate gate;              // guarded by gate_mutex
};

}  // namespace zeva
