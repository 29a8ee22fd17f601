// The engine of a classic recording: container, streams, encoders, writer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "ZV_AVWriter.h"
#include "audio_enc.h"
#include "options.h"
#include "picture_encoders.h"
#include "recording_figures.h"
#include "status.h"
#include "zeva/movie_info.h"

namespace zeva {

// Opens the main output with its streams and encoders, feeds the encoders, and closes everything in
// order. Owns the writer with the outputs, the encoders, and the recording's figures. The opening
// may run on a thread of its own. write_video is called by one thread at a time, write_audio by
// one, start first, stop last and alone; the rest by any thread.
class MovieMuxer {
 public:
  explicit MovieMuxer(std::unique_ptr<ZV::ZV_AVWriter> writer);
  virtual ~MovieMuxer();
  MovieMuxer(const MovieMuxer&) = delete;
  MovieMuxer& operator=(const MovieMuxer&) = delete;

  // Opens the output, on a thread of its own when `async`; the outcome reaches `cb`. Call once.
  int start(const MovieInfo& info, const Options& options, StatusCallback cb, void* user,
            bool async);

  // Encodes a frame in the encoder's format, whose pts (and pkt_duration, of a picture) is in `tb`.
  // True when the frame will be in the movie.
  bool write_video(AVFrame* frame, AVRational tb);
  bool write_audio(AVFrame* frame, AVRational tb);

  // True when the sound comes out as the same packet again and again; then `frames` frames more of
  // it can be made without encoding them. Called by the thread that writes sound.
  bool is_sound_steady();
  bool repeat_sound(int64_t frames);

  // Flushes, stops the writer, closes everything. Makes an opening under way give up and waits for
  // it. Safe to call again.
  bool stop();

  bool running() const { return phase == Phase::kRunning; }
  // As given to start.
  bool video_disabled() const { return disable_video; }
  bool audio_disabled() const { return disable_audio; }
  // The settings given to start; the ones really used once the output is open.
  MovieInfo settings() const;
  // Fills in all but the size; any thread, waits for nobody.
  void fill(ZevaStatistics& statistics) const;
  // Where those that convert and count what the host gives note it.
  RecordingFigures& figures() { return recording_figures; }
  // Time in microseconds of the last frame given to the audio (else video) encoder; -1 for none.
  int64_t last_usec_pts() const;

  // Null while not running and for a stream that is absent.
  AVFrame* video_dst_frame() { return video_encoder() ? video_encoder()->dst_frame() : nullptr; }
  AVFrame* audio_dst_frame() { return audio_encoder() ? audio_enc->dst_frame() : nullptr; }
  VideoEnc* video_encoder() { return running() ? pictures.first() : nullptr; }
  AudioEnc* audio_encoder() { return running() ? audio_enc.get() : nullptr; }

 protected:
  const std::unique_ptr<ZV::ZV_AVWriter> writer;

 private:
  enum class Phase { kIdle, kOpening, kRunning, kStopping };  // a failed opening stays one

  struct StartRecord {
    std::atomic<bool> exited{false};
    MovieInfo info;
    Options options;
    StatusCallback callback;
    void* user;
    std::thread thread;
  };

  // The opening, one function a step.
  void run_start();
  Status open(MovieInfo& info);
  Status open_main(const MovieInfo& info);
  Status open_encoders(MovieInfo& info);
  Status open_sound(AVCodecID codec, MovieInfo& info);
  Status open_url(const MovieInfo& info);
  Status open_writer(const MovieInfo& info);

  void tell(int code, const std::string& text) const;
  void close_encoders();
  void fill_encoded(ZevaStatistics& statistics) const;

  std::atomic<Phase> phase{Phase::kIdle};
  RecordingFigures recording_figures;

  // Fixed after start.
  std::unique_ptr<StartRecord> record;
  bool disable_video = false;
  bool disable_audio = false;

  // Written by the opening, read by others while running or once the opening has ended.
  const EncBase::Tell tell_host;
  PictureEncoders pictures;
  std::unique_ptr<AudioEnc> audio_enc;

  mutable std::mutex settings_mutex;
  MovieInfo effective{};  // guarded by settings_mutex

  std::atomic<int64_t> last_video_pts{-1};  // microseconds
  std::atomic<int64_t> last_audio_pts{-1};  // microseconds
  int64_t last_video_time = -1;             // codec time base; write_video only
  int64_t newest_audio_time = INT64_MIN;    // codec time base; write_audio only
};

}  // namespace zeva
