// Sound into the encoder's layout, sample format, rate and frame size.
#pragma once

#include <cstdint>

#include "av_handles.h"

namespace ZV {

// Resamples through a FIFO into frames of exactly the encoder's size, stamped with a running sample
// count that is re-anchored when it is half a second or more off the input's time stamps. Owns the
// resampler, the FIFO and a frame that shares the encoder's sample buffers. Used by the one thread
// that writes frames.
class NxResample {
 public:
  NxResample();
  virtual ~NxResample();
  NxResample(const NxResample&) = delete;
  NxResample& operator=(const NxResample&) = delete;

  // `dst` is the encoder's frame (layout, format, rate, nb_samples), `src` describes the host's
  // sound (layout, format, rate, channels), `tb` is the unit of output time stamps. Call once.
  // Negative on failure.
  int config(AVFrame* dst, AVFrame* src, AVRational tb);

  // Feeds `in` (may be null, to take out what is buffered) and returns the next full frame, or null
  // when too few samples are buffered or the conversion failed. The frame belongs to the resampler
  // and is valid until the next call. A part of a frame left at the end is never returned.
  AVFrame* resample(AVFrame* in, const AVRational* in_tb);

  int64_t in_bytes_per_second() const { return input.bytes_per_second; }

  AVRational time_base{0, 1};

 private:
  struct InputDescription {
    int channels = 0;
    int64_t bytes_per_second = 0;
  };

  int set_options(const AVFrame* dst, const AVFrame* src);
  bool buffer_converted(AVFrame* in);
  void correct_drift(const AVFrame* in, const AVRational* in_tb);

  zeva::SwrPtr swr;
  zeva::AudioFifoPtr fifo;
  zeva::FramePtr out_frame;
  InputDescription input;
  int out_refs = 2;       // references to out_frame's buffers that are not an encoder's
  int64_t processed = 0;  // time stamp of the next frame, in time_base units
};

}  // namespace ZV
