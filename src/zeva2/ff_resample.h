// Sound converted to another layout, sample format and rate, buffered until somebody takes it.
#pragma once

#include "av_handles.h"

namespace zeva {

// Owns the resampler, a FIFO of converted sound and a frame to take it out with. Used by one
// thread.
class FFResample {
 public:
  FFResample() = default;
  virtual ~FFResample() = default;
  FFResample(const FFResample&) = delete;
  FFResample& operator=(const FFResample&) = delete;

  // Channels 1..8 in FFmpeg's default layout for their number. Call once.
  [[nodiscard]] bool init(AVSampleFormat in_format, int in_rate, int in_channels,
                          AVSampleFormat out_format, int out_rate, int out_channels);

  // Converts `frame` into the FIFO. Follows a frame whose format, rate or channels changed. A null
  // frame ends the input; false for it, after it, and when the conversion fails.
  [[nodiscard]] bool push(const AVFrame* frame);

  int buffered_samples() const { return av_audio_fifo_size(fifo.get()); }

  // Takes `nb_samples` that are buffered. The frame belongs to this object and is valid until the
  // next call. Null without memory.
  AVFrame* read(int nb_samples);

 private:
  struct Sound {
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int sample_rate = 0;
    int channels = 0;
  };

  static bool is_valid(const Sound& sound);
  bool make_resampler();
  bool follow(const AVFrame& frame);
  bool convert(const uint8_t** planes, int nb_samples);
  AVFrame* get_frame(int nb_samples);

  SwrPtr swr;
  Sound in;
  Sound out;
  AudioFifoPtr fifo;
  FramePtr out_frame;
  int room = 0;  // samples that its buffers hold
  bool ended = false;
};

}  // namespace zeva
