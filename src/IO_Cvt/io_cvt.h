// The host's pictures and sound into the encoders' frames.
#pragma once

#include <cstdint>
#include <memory>

#include "av_handles.h"
#include "movie_muxer.h"
#include "resampler.h"
#include "rescaler.h"

// Wraps host buffers in place, converts them to what the encoders take and hands them to the muxer.
// Owns the two converters and the holder frames; the muxer outlives it. Made while the recording
// runs. Its two halves share nothing that changes: pictures are written by one
// thread at a time, sound by another. A result is true when converted frames came out and all of
// them will be in the movie. Time stamps are relative to the recording's start.
class IOCvt {
 public:
  // Ends the process when `muxer` is null: nothing could ever be recorded.
  explicit IOCvt(zeva::MovieMuxer* muxer);
  virtual ~IOCvt();
  IOCvt(const IOCvt&) = delete;
  IOCvt& operator=(const IOCvt&) = delete;

  // Interleaved or planar as the settings' sample_fmt says. A part of a sample at the end is cut.
  bool write_pcm(const uint8_t* data, int bytes, int64_t pts_us);
  // From the end of the sound so far; refused when that is not before `until_us`.
  bool write_silence(int64_t until_us);
  // Hands on the part of a frame of sound that is left at the end. No more sound after it.
  void finish();
  bool write_audio_frame(AVFrame* frame, const AVRational* tb);
  // `size` is not used: hosts hand over any number. A stride shorter than a row is refused.
  bool write_image(const uint8_t* data, int size, int64_t pts_us, int stride);
  bool write_video_frame(AVFrame* frame, const AVRational* tb);

 protected:
  virtual bool convert(bool is_video, AVFrame* frame, const AVRational* tb);
  virtual bool emit(bool is_video, AVFrame* frame, const AVRational* tb);

 private:
  bool ensure_audio();
  bool ensure_video();
  bool ensure_image_frame(int stride);
  AVFrame* rescale(AVFrame* frame, const AVRational* tb);
  // Frames of sound that the muxer took, and that it did not.
  struct Emitted {
    int64_t taken = 0;
    int64_t lost = 0;
    bool succeeded() const { return taken > 0 && lost == 0; }
    void operator+=(const Emitted& more) {
      taken += more.taken;
      lost += more.lost;
    }
  };
  Emitted emit_sound(AVFrame* out);
  Emitted repeat_silence(int64_t until);
  bool write_samples(const uint8_t* data, int64_t bytes, int64_t pts_us);

  zeva::MovieMuxer* const muxer;
  const MovieInfo info;  // the settings in use

  // Sound only.
  std::unique_ptr<ZV::NxResample> resampler;
  zeva::FramePtr pcm_frame;  // describes the host's PCM; its data pointers are borrowed

  // Pictures only.
  std::unique_ptr<ZV::NxRescale> rescaler;
  zeva::FramePtr image_frame;  // the same as for sound
};
