// Pictures in another size.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "av_handles.h"
#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"
#include "scale_filter.h"

namespace zeva {

// Pictures of eight bits, planar or not, or RGB, into planar ones of another size, in the target's
// matrix and range where they are made of RGB. Of chroma, all that the source has is used.
class PlaneScaler : public PictureStep {
 public:
  // Not to less than a quarter of the width.
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;
  bool goes_row_by_row() const override { return false; }

 private:
  // A plane on its way: its filters, and the last rows of the source in the result's width.
  struct Plane {
    Plane(int from_width, int from_height, int to_width, int to_height);
    int16_t* row(int y) { return rows.data() + y % columns.taps * row_size; }

    RowFilter across;
    ColumnFilter columns;
    ptrdiff_t row_size;
    std::vector<int16_t> rows;
    int next_in = 0;   // row of the source
    int next_out = 0;  // row of the result
  };

  void make_strip(const PictureFormat& planar);
  void take_row(int plane, const uint8_t* row, AVFrame& out);
  void scale_row(const uint8_t* from, int16_t* to, const RowFilter& filter) const;
  void combine_rows(const RowSum& sum, uint8_t* to, int width) const;

  const RowKernels* kernels;
  std::unique_ptr<PictureStep> unpack;  // from `source` into `strip`
  FramePtr source;                      // points to some rows of the picture
  FramePtr strip;                       // the same rows, planar, with room beyond both edges
  std::vector<uint8_t> strip_bytes;
  std::vector<Plane> planes;
  std::vector<const int16_t*> summands;
};

}  // namespace zeva
