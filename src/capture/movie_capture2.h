// A classic recording as the host sees it: one time line, pause and resume, status.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "io_cvt.h"
#include "movie_muxer.h"

// Stamps the host's pictures and sound with movie time: microseconds since the first time stamp
// offered, pauses cut out. Owns the frame converter, and through its bases the muxer and writer.
// Pictures are written by one thread at a time, sound by one, start first, stop last and alone; the
// rest by any thread.
class MovieCapture2 : public zeva::MovieMuxer {
 public:
  explicit MovieCapture2(std::unique_ptr<ZV::ZV_AVWriter> writer);
  ~MovieCapture2() override;

  void start(const MovieInfo* info, const zeva::Options& options, zeva::StatusCallback cb,
             void* user, bool async);
  // Frames arriving from here on are refused; everything is flushed and closed.
  void stop();
  // True inside the host's status callback, whose thread stop would wait for.
  bool in_status_callback() const;

  // Host times in microseconds. Null `data` asks for silence up to `pts_us`. True when what was
  // written will be in the movie.
  bool write_pcm(const uint8_t* data, int bytes, int64_t pts_us);
  bool write_bgra(const uint8_t* data, int size, int64_t pts_us, int stride);
  bool write_audio_frame(AVFrame* frame, const AVRational* tb);
  bool write_video_frame(AVFrame* frame, const AVRational* tb);

  bool pause();
  bool resume();
  bool is_paused() const;
  int64_t movie_time() const;
  // The settings in use; `started` (may be null) tells whether the output is open.
  MovieInfo get_mInfo(bool* started) const;

  // Fill in as much as the record's `struct_size` says; false when that cannot be, or there is no
  // such output. Any thread; never block.
  bool output_state(int32_t output, ZevaOutputState& state) const;
  bool statistics(ZevaStatistics& statistics) const;

  // Calendar microseconds that advance with the steady clock.
  static int64_t sys_usec();

 private:
  // Where status reports of muxer and writer go on to.
  struct HostStatus {
    zeva::StatusCallback callback = nullptr;
    void* user = nullptr;
  };

  static void on_status(int code, const char* message, void* capture);
  // Movie time of a frame of the host's; nothing when it is refused.
  std::optional<int64_t> accept(int64_t pts_us);
  template <typename Write>
  bool count_picture(Write write);
  bool write_picture(const uint8_t* data, int size, int64_t pts_us, int stride);
  bool write_picture(AVFrame* frame, const AVRational* tb);
  IOCvt& converter();

  // Fixed after start.
  HostStatus host;
  int64_t sound_bytes_per_second = 0;  // of the host's PCM
  std::atomic<bool> start_ok{false};

  mutable std::mutex time_mutex;
  int64_t start_pts = -1;  // host time of the first frame offered; guarded by time_mutex
  int64_t pause_time =
      0;              // system clock at the last pause; 0 when not paused; guarded by time_mutex
  int64_t drift = 0;  // paused time so far; guarded by time_mutex

  std::atomic<int64_t> last_audio_pts{0};
  std::atomic<int64_t> last_video_pts{0};
  std::once_flag converter_made;
  std::unique_ptr<IOCvt> iocvt;
};
