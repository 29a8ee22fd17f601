// Lets a network output's blocking calls be given up.
#pragma once

#include <atomic>
#include <cstdint>

#include "ffmpeg.h"

namespace zeva {

// FFmpeg asks `callback()` while it waits for a peer. The answer is "give up" when the recording
// ended: at once while connecting, after a grace of 1.5 s once `opened` was called (so that the
// rest can be flushed), however many operations that takes; and when one operation takes longer
// than the time-out. All but `begin_session` may be called from any thread.
class IoInterrupt {
 public:
  void set_timeout(int timeout_sec);  // 0 or less: 10 s
  void exit();
  bool exited() const { return exit_time != kNever; }
  void opened() { is_open = true; }
  void begin_operation();
  // Between two connections: giving up concerned the one that was.
  void begin_session() { gave_up = false; }
  // The result of the operation in truth: FFmpeg's RTSP ignores that a send was given up, and would
  // send the rest of the packets behind half of one.
  int result_of_operation(int ffmpeg_result) const;
  AVIOInterruptCB callback();

 private:
  static constexpr int64_t kNever = -1;
  static int should_give_up(void* self);
  bool must_give_up() const;

  std::atomic<bool> is_open{false};
  std::atomic<bool> gave_up{false};
  std::atomic<int64_t> exit_time{kNever};        // steady_us
  std::atomic<int64_t> operation_start{kNever};  // steady_us
  std::atomic<int64_t> timeout_us{10 * 1000000};
};

}  // namespace zeva
