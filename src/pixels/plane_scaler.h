// Pictures in another size.
#pragma once

#include <cstdint>
#include <vector>

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// For each sample of the result where its neighbours in the source begin, and their weights: `taps`
// numbers that add up to one (ScaleBits::kWeight), one sample's after the other's. `taps` is a
// multiple of 8; weights behind the source's end are 0.
struct ScaleFilter {
  ScaleFilter(int source_size, int target_size);

  int source_size;
  int target_size;
  int taps = 0;
  std::vector<int32_t> starts;
  std::vector<int16_t> weights;
};

// Such a filter in the order of CloseTaps; without weights where starts are too far apart.
struct CloseFilter {
  explicit CloseFilter(const ScaleFilter& filter);

  int taps;
  std::vector<int32_t> starts;
  std::vector<uint8_t> shuffles;
  std::vector<int16_t> weights;
};

// Planar YUV of eight bits, 4:2:0 or 4:2:2, scaled by a cubic filter, which is as much wider as the
// picture gets smaller.
class PlaneScaler : public PictureStep {
 public:
  // Not to less than a quarter of the width or height: sums of many rows would need more precision.
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  struct Filters {
    Filters(int from_width, int from_height, int to_width, int to_height);
    ScaleFilter vertical;
    ScaleFilter horizontal;
    CloseFilter close;
  };
  void scale_plane(const AVFrame& in, AVFrame& out, int plane, const Filters& filters);
  void combine_rows(const AVFrame& in, int plane, const ScaleFilter& filter, int y, int width);
  void scale_row(uint8_t* to, const Filters& filters) const;

  const RowKernels* kernels;
  Filters luma;
  Filters chroma;
  // Rows that make up one of the result; that row, which still has the source's width.
  std::vector<const uint8_t*> rows;
  std::vector<uint16_t> row_weights;
  std::vector<int16_t> combined;
};

}  // namespace zeva
