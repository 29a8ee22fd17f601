// Sound into the encoder's layout, sample format, rate and frame size.
#pragma once

#include <cstdint>

#include "av_handles.h"
#include "drift_meter.h"

namespace ZV {

// Resamples through a FIFO into frames of exactly the encoder's size, stamped with a running sample
// count. The count starts at the first sound's own time stamp. It is re-anchored when it is half a
// second or more off the input's time stamps; what a DriftMeter finds is made up with silence or by
// leaving samples out. Owns the resampler, the FIFO and a frame that shares the encoder's sample
// buffers. Used by the one thread that writes sound.
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
  // when too few samples are buffered or the conversion failed. `in` is as `src` announced it, or
  // as the encoder takes it. The frame belongs to the resampler and is valid until the next call.
  AVFrame* resample(AVFrame* in, const AVRational* in_tb);

  // Adds silence from the end of the sound up to `until`, but no more than a block of it: take the
  // full frames out and call it again. False when there is nothing to add any more, or no memory.
  bool add_silence(int64_t until);

  // Full frames of silence that are missing up to `until`; and to count some of them as given out.
  int64_t frames_until(int64_t until) const { return (until - end()) / frame_size; }
  void skip(int64_t frames) { processed += frames * frame_size; }

  // The end of all sound: call `flush`, take the full frames out, then `last` gives the part of a
  // frame that is left, or null.
  void flush();
  AVFrame* last();

  // Where the sound so far ends, in time_base units; 0 before any.
  int64_t end() const;

  AVRational time_base{0, 1};

 private:
  int set_options(const AVFrame* dst, const AVFrame* src);
  bool buffer(AVFrame* in, const AVRational& in_tb);
  bool buffer_converted(const AVFrame* in);
  bool put(uint8_t** data, int samples);
  AVFrame* take(int samples);
  void follow_stamps(const AVFrame& in, const AVRational& in_tb);
  void re_anchor(int64_t pts, const AVFrame& in, const AVRational& in_tb);
  void move_later(int64_t samples);
  void move_earlier(int64_t samples);

  zeva::SwrPtr swr;
  zeva::AudioFifoPtr fifo;
  zeva::FramePtr source;   // describes the host's sound
  zeva::FramePtr silence;  // a block of it as the host would give it; made when needed
  zeva::FramePtr out_frame;
  int frame_size = 0;     // samples
  int out_refs = 2;       // references to out_frame's buffers that are not an encoder's
  bool anchored = false;  // there has been sound
  int64_t processed = 0;  // time stamp of the next frame, in time_base units
  int64_t left_out = 0;   // samples still to be left out
  DriftMeter drift{1};
};

}  // namespace ZV
