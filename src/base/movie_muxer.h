// The engine of a classic recording: container, streams, encoders, writer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "audio_enc.h"
#include "av_handles.h"
#include "video_enc.h"
#include "ZV_AVWriter.h"
#include "zeva/movie_info.h"

namespace zeva {

// Opens the main output with its streams and encoders, feeds the encoders, and closes everything in
// order. Owns the output context, the streams and the encoders. start, write_* and stop are called
// by one thread at a time; the opening may run on a thread of its own, and then nothing but
// not_running, the effective settings and the last times is shared with it.
class MovieMuxer {
 public:
  explicit MovieMuxer(std::unique_ptr<ZV::ZV_AVWriter> writer) : writer(std::move(writer)) {}
  virtual ~MovieMuxer();
  MovieMuxer(const MovieMuxer&) = delete;
  MovieMuxer& operator=(const MovieMuxer&) = delete;

  // Opens the output, on a thread of its own when `async`; the outcome reaches `cb`. Call once.
  int start(const MovieInfo& info, StatusCallback cb, void* user, bool async);

  // Encodes a frame in the encoder's format; null flushes. `tb` is the unit of the frame's pts,
  // null for the codec's own. The encoder's result, or 0 when the frame was ignored or refused.
  int write_video(AVFrame* frame, const AVRational* tb);
  int write_audio(AVFrame* frame, const AVRational* tb);

  // Flushes, stops the writer, closes everything. Makes an opening under way give up and waits for
  // it. Safe to call again.
  bool stop();

  bool running() const { return !not_running; }
  // The settings given to start; the ones really used once the output is open. Any thread.
  MovieInfo settings() const;
  // Time in microseconds of the last frame given to the audio (else video) encoder; -1 for none.
  int64_t last_usec_pts() const;

  // Null while not running and for a stream that is absent.
  AVFrame* video_dst_frame() { return running() ? video.frame.get() : nullptr; }
  AVFrame* audio_dst_frame() { return running() ? audio.frame.get() : nullptr; }
  VideoEnc* video_encoder() { return running() ? video_enc.get() : nullptr; }
  AudioEnc* audio_encoder() { return running() ? audio_enc.get() : nullptr; }
  AVFrame* generate_test_video(AVRational tb);
  AVFrame* generate_test_audio(AVRational tb);

 protected:
  const std::unique_ptr<ZV::ZV_AVWriter> writer;

 private:
  struct StartRecord {
    std::atomic<bool> exited{false};
    MovieInfo info;
    StatusCallback callback;
    void* user;
    std::thread thread;
  };

  // The opening, one function a step.
  void run_start();
  void open(MovieInfo& info);
  void open_encoders(MovieInfo& info);
  void open_url(const MovieInfo& info);
  void open_writer(const MovieInfo& info);

  static void close_stream(OutputStream& ost, const char* closed_message);
  void open_main(const MovieInfo& info);

  std::unique_ptr<StartRecord> record;
  std::atomic<bool> not_running{true};

  // Written by the opening, read by others once not_running is cleared or the opening has ended.
  AVFormatContext* oc = nullptr;  // the writer's
  OutputStream video;
  OutputStream audio;
  bool has_video = false;
  bool has_audio = false;
  AVDictionary* codec_options = nullptr;  // always empty: options go to the codecs directly
  std::unique_ptr<AudioEnc> audio_enc;
  std::unique_ptr<VideoEnc> video_enc;

  mutable std::mutex settings_mutex;
  MovieInfo effective{};  // guarded by settings_mutex

  std::atomic<int64_t> last_video_pts{-1};  // microseconds
  std::atomic<int64_t> last_audio_pts{-1};  // microseconds
  int64_t last_video_time = -1;             // codec time base
};

}  // namespace zeva
