// An output with a queue and a thread that writes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "movie_output.h"
#include "packetqueue.h"
#include "status.h"

namespace zeva {

struct OutputPolicy {
  // Packets that wait in the queue before `put` holds its caller.
  uint32_t max_packets = UINT32_MAX;
  // Also after a write error the trailer is tried, since what was written before is to be a movie.
  // Without it a movie is finished only when the error left room for the trailer.
  bool trailer_after_error = false;
};

// Hears what happens on the writer thread, each call on that thread and before `join` returns.
class OutputListener {
 public:
  virtual void on_end_of_packets(int64_t /*written*/) {}
  virtual void on_trailer(int64_t /*written*/) {}
  // A packet, the trailer or the close failed: `code` is FFmpeg's. Once for a packet, once for the
  // trailer.
  virtual void on_write_error(int code) = 0;
  virtual void on_trailer_error(int code) = 0;
  virtual void on_finished() {}

 protected:
  ~OutputListener() = default;
};

// Opens nothing by itself: the owner opens `output`, then calls start, any number of put, end and
// join. Between start and join the output is the thread's alone. `put` may be called by one thread
// a stream.
class OutputThread {
 public:
  // The listener must outlive the object.
  OutputThread(std::string url, const OutputPolicy& policy, OutputListener& listener,
               MovieOutput::Report report = {});
  ~OutputThread() { join(); }
  OutputThread(const OutputThread&) = delete;
  OutputThread& operator=(const OutputThread&) = delete;

  // Fails when the system has no thread to give.
  Status start();
  bool is_started() const { return thread.joinable(); }

  // Queues a reference to the packet. Waits while `max_packets` or more are queued. 0, or -1 when
  // the output has failed or there is no memory.
  int put(const AVPacket& packet, uint32_t max_packets);
  int put(const AVPacket& packet) { return put(packet, policy.max_packets); }

  // No more packets: what is queued and the trailer are written. Does not wait.
  void end();
  // Waits until they are.
  void join();

  int32_t queued() const { return queue.nb_packets(); }
  bool has_failed() const { return failed; }

  MovieOutput output;

 private:
  void run();
  int write_queued();
  void fail(int code);

  const OutputPolicy policy;
  OutputListener& listener;
  PacketQueue queue;
  std::atomic<bool> failed{false};
  int64_t written = 0;  // writer thread only
  std::thread thread;   // last: it uses the rest
};

}  // namespace zeva
