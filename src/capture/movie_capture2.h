// A classic recording as the host sees it: one time line, pause and resume, status.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "io_cvt.h"
#include "movie_muxer.h"

// Stamps the host's pictures and sound with movie time: microseconds since the first time stamp
// offered, pauses cut out. Owns the frame converter, and through its bases the muxer and writer.
// start, write_*, pause, resume and stop are called by one thread at a time; the rest by any.
class MovieCapture2 : public zeva::MovieMuxer {
 public:
  explicit MovieCapture2(std::unique_ptr<zeva::BaseWriter> writer);
  ~MovieCapture2() override;

  void start(const MovieInfo* info, zeva::StatusCallback cb, void* user, bool async);
  // Frames arriving from here on are refused; everything is flushed and closed.
  void stop();

  // Host times in microseconds. Null `data` asks for silence up to `pts_us`.
  bool write_pcm(const uint8_t* data, int bytes, int64_t pts_us);
  bool write_bgra(const uint8_t* data, int size, int64_t pts_us, int stride);
  bool write_audio_frame(AVFrame* frame, const AVRational* tb);
  bool write_video_frame(AVFrame* frame, const AVRational* tb);

  bool pause();
  bool resume();
  bool is_paused() const { return pause_time > 0; }
  int64_t movie_time() const;
  // The settings in use; `started` (may be null) tells whether the output is open.
  MovieInfo get_mInfo(bool* started) const;

  // Calendar microseconds that advance with the steady clock.
  static int64_t sys_usec();

 private:
  // Where status reports of muxer and writer go on to.
  struct HostStatus {
    zeva::StatusCallback callback = nullptr;
    void* user = nullptr;
  };

  static void on_status(int code, const char* message, void* capture);
  bool accept(int64_t pts_us);
  bool ensure_converter();
  int64_t relative(int64_t pts_us) const { return pts_us - drift - start_pts; }

  HostStatus host;  // fixed after start
  std::atomic<bool> start_ok{false};
  int64_t start_pts = -1;              // host time of the first frame offered
  std::atomic<int64_t> pause_time{0};  // system clock at the last pause; 0 when not paused
  int64_t drift = 0;                   // paused time so far
  std::atomic<int64_t> last_audio_pts{0};
  std::atomic<int64_t> last_video_pts{0};
  std::unique_ptr<IOCvt> iocvt;
};
