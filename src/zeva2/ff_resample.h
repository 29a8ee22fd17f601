// Sound converted to another layout, sample format and rate, buffered until somebody takes it.
#pragma once

#include "av_handles.h"

namespace zeva {

// Owns the resampler, a FIFO of converted sound and two frames, one of either side's format. Used
// by one thread.
class FFResample {
 public:
  FFResample() = default;
  virtual ~FFResample() = default;
  FFResample(const FFResample&) = delete;
  FFResample& operator=(const FFResample&) = delete;

  // Channels 1..8 in FFmpeg's default layout for their number. Call once.
  [[nodiscard]] bool init(AVSampleFormat in_format, int in_rate, int in_channels,
                          AVSampleFormat out_format, int out_rate, int out_channels);

  // Converts `frame`, of the input's format, into the FIFO. A null frame ends the input; false for
  // it, after it, and when the conversion fails.
  [[nodiscard]] bool push(const AVFrame* frame);

  // The frame of the output or the input side, with room of its own for `nb_samples` that nobody
  // else holds. It belongs to this object and is valid until it is asked for again. Null, with a
  // log line, without memory.
  AVFrame* get_frame(bool for_output, int nb_samples);

  int buffered_samples() const { return av_audio_fifo_size(fifo.get()); }

  // Takes `nb_samples` that are buffered. Null as above.
  AVFrame* read(int nb_samples);

 private:
  struct Side {
    FramePtr frame;
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int sample_rate = 0;
    int channels = 0;
    int room = 0;  // samples that the frame's buffers hold
  };

  SwrPtr swr;
  Side in;
  Side out;
  AudioFifoPtr fifo;
  bool ended = false;
};

}  // namespace zeva
