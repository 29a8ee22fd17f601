// Pictures from one size, pixel format, matrix and range into another.
#pragma once

#include "av_handles.h"
#include "picture_format.h"

namespace zeva {

// Converts pictures of one format into another's buffers. Used by one thread at a time.
class PictureConverter {
 public:
  // Both formats are settled. False, with a line in the log, when there is no such conversion.
  bool configure(const PictureFormat& from, const PictureFormat& to);

  // `in` is as configured; `out` is writable and has the size and the pixel format configured. Only
  // its picture is written.
  void convert(const AVFrame& in, AVFrame& out);

  const PictureFormat& source() const { return from; }

 private:
  PictureFormat from;
  PictureFormat to;
  SwsPtr scaler;
};

}  // namespace zeva
