// One way of turning pictures of one format into those of another.
#pragma once

#include "ffmpeg.h"

namespace zeva {

// A step knows its two formats from the time it is made. Any stride, negative ones included, and
// any alignment of `in` and `out` will do. Nothing beyond a row is read, and only the picture is
// written. Used by one thread at a time.
class PictureStep {
 public:
  PictureStep() = default;
  virtual ~PictureStep() = default;
  PictureStep(const PictureStep&) = delete;
  PictureStep& operator=(const PictureStep&) = delete;

  virtual void run(const AVFrame& in, AVFrame& out) = 0;

  // Every two rows of the result depend on the same two of the source alone.
  virtual bool goes_row_by_row() const { return true; }
};

inline const uint8_t* row_of(const AVFrame& picture, int plane, int y) {
  return picture.data[plane] + static_cast<ptrdiff_t>(picture.linesize[plane]) * y;
}

inline uint8_t* row_of(AVFrame& picture, int plane, int y) {
  return picture.data[plane] + static_cast<ptrdiff_t>(picture.linesize[plane]) * y;
}

// Eight bits; yuvj420p says its range, and nothing else.
inline bool is_planar_420(AVPixelFormat pixels) {
  return pixels == AV_PIX_FMT_YUV420P || pixels == AV_PIX_FMT_YUVJ420P;
}

inline bool is_planar_422(AVPixelFormat pixels) {
  return pixels == AV_PIX_FMT_YUV422P || pixels == AV_PIX_FMT_YUVJ422P;
}

inline bool is_planar_444(AVPixelFormat pixels) {
  return pixels == AV_PIX_FMT_YUV444P || pixels == AV_PIX_FMT_YUVJ444P;
}

// Two luma samples or rows share one of chroma; an odd last one has its own.
inline int half_of(int size) { return (size + 1) / 2; }

}  // namespace zeva
