// The host's pictures and sound into the encoders' frames.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "av_handles.h"
#include "movie_muxer.h"
#include "resampler.h"
#include "rescaler.h"

// Wraps host buffers in place, converts them to what the encoders take and hands them to the muxer.
// Owns the two converters, the holder frames and the silence buffer; the muxer outlives it. Each
// half is configured when its first input arrives. Used by the one thread that writes frames. A
// result is true when at least one converted frame was handed on. Time stamps are relative to the
// recording's start.
class IOCvt {
 public:
  // Ends the process when `muxer` is null: nothing could ever be recorded.
  explicit IOCvt(zeva::MovieMuxer* muxer);
  virtual ~IOCvt();
  IOCvt(const IOCvt&) = delete;
  IOCvt& operator=(const IOCvt&) = delete;

  // Interleaved or planar as the settings' sample_fmt says. A part of a sample at the end is cut.
  bool write_pcm(const uint8_t* data, int bytes, int64_t pts_us);
  // Throws std::length_error for a negative duration.
  bool write_silence(int64_t duration_us, int64_t pts_us);
  bool write_audio_frame(AVFrame* frame, const AVRational* tb);
  // `size` is not used: hosts hand over any number. A stride shorter than a row is refused.
  bool write_image(const uint8_t* data, int size, int64_t pts_us, int stride);
  bool write_video_frame(AVFrame* frame, const AVRational* tb);

 protected:
  virtual bool convert(bool is_video, AVFrame* frame, const AVRational* tb);
  virtual bool emit(bool is_video, AVFrame* frame, const AVRational* tb);

 private:
  bool ensure_info();
  bool ensure_audio();
  bool ensure_video();
  bool ensure_image_frame(int stride);
  bool write_samples(const uint8_t* data, int64_t bytes, int64_t pts_us);

  zeva::MovieMuxer* const muxer;
  std::unique_ptr<ZV::NxResample> resampler;
  std::unique_ptr<ZV::NxRescale> rescaler;
  zeva::FramePtr pcm_frame;         // describes the host's PCM; its data pointers are borrowed
  zeva::FramePtr image_frame;       // the same for pictures
  std::unique_ptr<MovieInfo> info;  // the settings in use, taken once
  int64_t audio_samples = 0;
  int64_t video_frames = 0;
  std::vector<uint8_t> silence;  // only ever grows
};
