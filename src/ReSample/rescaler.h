// Pictures into the encoder's size and pixel format.
#pragma once

#include "av_handles.h"
#include "band_converter.h"

namespace ZV {

// Scales and converts pictures, or passes them through when nothing differs, and rescales their
// time stamps and lengths (`pkt_duration`). Owns the converter and a frame that shares the
// encoder's picture buffers. Used by the one thread that writes frames.
class NxRescale {
 public:
  NxRescale() = default;
  virtual ~NxRescale() = default;
  NxRescale(const NxRescale&) = delete;
  NxRescale& operator=(const NxRescale&) = delete;

  // `dst` is the encoder's frame; `src` describes the host's pictures (size, format, and of those
  // that do not say it themselves matrix and range); `tb` is the unit of output time stamps. Call
  // once. 0, or -1 when no such conversion exists.
  int config(AVFrame* dst, AVFrame* src, AVRational tb);

  // The converted picture, or `in` itself when there is nothing to convert (its times are then
  // overwritten). Belongs to the rescaler and is valid until the next call. A picture that is
  // neither as `src` announced it nor as the encoder takes it cannot be converted: null.
  AVFrame* rescale(AVFrame* in, const AVRational* in_tb);

  AVRational time_base{0, 1};

 private:
  // Null when there is no such conversion.
  AVFrame* convert(AVFrame* in, const zeva::PictureFormat& from);

  zeva::PictureFormat announced;
  zeva::PictureFormat wanted;
  zeva::BandConverter converter;  // from what the last picture was that had to be converted
  zeva::FramePtr out_frame;
  int out_refs = 2;  // references to out_frame's buffers that no filter of the host's keeps
};

}  // namespace ZV
