// An output with a queue and a thread that writes it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "movie_output.h"
#include "output_monitor.h"
#include "output_policy.h"
#include "output_queue.h"
#include "session_times.h"
#include "status.h"

namespace zeva {

// Hears what happens on the writer thread, each call on that thread and before `join` returns.
class OutputListener {
 public:
  virtual void on_end_of_packets(int64_t /*written*/) {}
  virtual void on_trailer(int64_t /*written*/) {}
  // A packet, the trailer or the close failed: `code` is FFmpeg's. Once for a packet, once for the
  // trailer. Not for an output that the recording can do without.
  virtual void on_write_error(int code) = 0;
  virtual void on_trailer_error(int code) = 0;
  virtual void on_finished() {}

 protected:
  ~OutputListener() = default;
};

// The owner makes the context and the streams of `output`, opens it unless `opens_itself`, then
// calls start, any number of put, end and join. Between start and join the output is the thread's
// alone. `put` may be called by one thread a stream; `monitor` and `queue` tell what they know to
// any thread.
//
// A live stream that is lost and is to come back, or that opens itself, goes through these steps
// again and again: connect, until that succeeds; begin with a key picture at time 0; write what is
// queued, until it breaks; drop what is queued. Nobody but this thread waits for any of it.
class OutputThread {
 public:
  // The listener must outlive the object.
  OutputThread(std::string url, const OutputPolicy& policy, OutputListener& listener,
               MovieOutput::Report report = {}, const MovieOutput::DiskCalls& calls = {});
  ~OutputThread() { join(); }
  OutputThread(const OutputThread&) = delete;
  OutputThread& operator=(const OutputThread&) = delete;

  // A live stream that the recording can do without: the thread opens it while others record.
  bool opens_itself() const { return policy.live && policy.optional; }
  // The owner could not open an output that the recording can do without. It never will be started.
  void leave_out(int code, const std::string& why);

  // The output has its streams, and is open unless it opens itself: `put` may be called.
  void note_streams();
  // Fails when the system has no thread to give.
  Status start();
  bool is_started() const { return thread.joinable(); }

  // Queues a reference to the packet, whose times are in the `time_base` of its stream. 0, also
  // when the policy is to drop it; -1 when the output has failed or there is no memory.
  int put(const AVPacket& packet, bool interleave = false);

  // No more packets: what is queued and the trailer are written. Does not wait.
  void end();
  // Waits until they are.
  void join();

  bool has_failed() const { return failed; }
  // Its file was finished before the end, for lack of space. That is no failure.
  bool has_finished_early() const { return finished_early; }
  bool takes_packets() const { return !failed && !finished_early; }
  void fill(ZevaOutputState& state) const;

  const OutputPolicy policy;
  OutputMonitor monitor;
  OutputQueue queue;
  MovieOutput output;

 private:
  void run();
  int write_until_end();
  int write_queued();
  int watch_disk();
  int wait_ms(bool holding);
  int write(AVPacket& packet);
  int connect(int lost);
  void begin_session();
  int open_again();
  bool wait_before_next(int64_t wait_us);
  void finish();
  void fail(int code);
  void end_early();

  OutputListener& listener;
  SessionTimes times;   // writer thread only
  int64_t written = 0;  // writer thread only
  std::atomic<bool> failed{false};
  std::atomic<bool> finished_early{false};
  std::atomic<bool> ended{false};
  std::mutex wake_mutex;
  std::condition_variable wake;  // of a wait before a next connection, at the end
  std::thread thread;            // last: it uses the rest
};

}  // namespace zeva
