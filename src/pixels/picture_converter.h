// Pictures from one size, pixel format, matrix and range into another.
#pragma once

#include <memory>
#include <vector>

#include "av_handles.h"
#include "cpu_level.h"
#include "picture_format.h"
#include "picture_step.h"

namespace zeva {

// Converts pictures of one format into another's buffers. Owns the steps on the way and the
// pictures between them. Used by one thread at a time.
class PictureConverter {
 public:
  // Both formats are settled. False, with a line in the log, when there is no such conversion. Each
  // level gives the same pictures.
  bool configure(const PictureFormat& from, const PictureFormat& to,
                 CpuLevel level = best_cpu_level());

  // `in` is as configured; `out` is writable and has the size and the pixel format configured. Only
  // its picture is written.
  void convert(const AVFrame& in, AVFrame& out);

  const PictureFormat& source() const { return from; }

  // Bands of an even number of rows can be converted each by itself.
  bool goes_row_by_row() const;

 private:
  struct Stage {
    std::unique_ptr<PictureStep> step;
    PictureFormat format;  // of its result
    FramePtr result;       // null: the last one, which writes into the caller's frame
  };

  bool plan(CpuLevel level);
  bool plan_by_planar(CpuLevel level);
  bool plan_by_swscale(CpuLevel level);
  void append_rest(CpuLevel level);
  template <typename Step>
  void append(const PictureFormat& format, CpuLevel level);
  bool append_swscale(const PictureFormat& format);
  bool make_results();
  const PictureFormat& reached() const { return stages.empty() ? from : stages.back().format; }

  PictureFormat from;
  PictureFormat to;
  std::vector<Stage> stages;
};

}  // namespace zeva
