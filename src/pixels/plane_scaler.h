// Pictures in another size.
#pragma once

#include <cstdint>
#include <vector>

#include "picture_format.h"
#include "picture_step.h"
#include "row_kernels.h"

namespace zeva {

// For each sample of the result where its neighbours in the source begin, and their weights: `taps`
// numbers, an even one, that add up to one (ScaleBits::kWeight), one sample's after the other's.
struct ScaleFilter {
  ScaleFilter(int source_size, int target_size);

  int source_size;
  int target_size;
  int taps = 0;
  std::vector<int32_t> starts;
  std::vector<int16_t> weights;
};

// Such a filter in the order of RowTaps.
struct RowFilter {
  explicit RowFilter(const ScaleFilter& filter);
  RowTaps view() const { return {starts.data(), shuffles.data(), weights.data(), taps, is_dense}; }

  bool place_starts(const ScaleFilter& filter, size_t size, size_t neighbours);

  int taps;
  bool is_dense;
  std::vector<int32_t> starts;
  std::vector<uint8_t> shuffles;
  std::vector<int16_t> weights;
};

// Planar YUV of eight bits, scaled by a cubic
// filter, which is as much wider as the picture gets smaller.
class PlaneScaler : public PictureStep {
 public:
  // Not to less than a quarter of the width or height: RowTaps reaches no farther.
  static bool supports(const PictureFormat& from, const PictureFormat& to);

  PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level);
  void run(const AVFrame& in, AVFrame& out) override;

 private:
  struct Filters {
    Filters(int from_width, int from_height, int to_width, int to_height);
    ScaleFilter vertical;
    ScaleFilter horizontal;
    RowFilter row;
  };
  void scale_plane(const AVFrame& in, AVFrame& out, int plane, const Filters& filters);
  void scale_row(const uint8_t* from, int16_t* to, const Filters& filters);
  void combine_rows(const RowSum& sum, uint8_t* to, int width) const;
  int16_t* scaled_row(int y) { return scaled.data() + y % kept_rows * row_size; }

  const RowKernels* kernels;
  Filters luma;
  Filters chroma;
  int kept_rows;
  ptrdiff_t row_size;
  std::vector<uint8_t> source_row;  // with room for what registers read beyond it
  std::vector<int16_t> scaled;      // the last rows of the source, in the result's width
  std::vector<const int16_t*> rows;
};

}  // namespace zeva
