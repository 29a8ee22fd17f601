// The source is taken two rows at a time, so that all that happens to them happens in the
// processor's first cache: they become planar, each row is scaled horizontally, once, into words,
// and a row of the result, a weighted sum of such words, is made as soon as the last of its
// neighbours is there. Beyond the edges of a row its last samples are repeated.
#include "plane_scaler.h"

#include <algorithm>

#include "picture_rows.h"
#include "repack.h"
#include "rgb_to_yuv.h"

namespace zeva {
namespace {

constexpr int kStripRows = 2;  // those that share a row of chroma

// The source's rows are made so before they are scaled; or none.
AVPixelFormat planar_of(const PictureFormat& from, const PictureFormat& to) {
  if (from.is_rgb()) {
    const int shift = av_pix_fmt_desc_get(to.pixels)->log2_chroma_w;
    const bool half_will_do = from.width / 2 >= to.width >> shift;
    return half_will_do ? AV_PIX_FMT_YUV422P : AV_PIX_FMT_YUV444P;
  }
  for (const AVPixelFormat planar : {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV420P}) {
    if (Repack::supports(from.pixels, planar)) return planar;
  }
  return AV_PIX_FMT_NONE;
}

PictureFormat planar_source(const PictureFormat& from, const PictureFormat& to) {
  return {from.width, from.height, planar_of(from, to), to.matrix, to.range};
}

std::unique_ptr<PictureStep> make_unpacking(const PictureFormat& from, const PictureFormat& planar,
                                            CpuLevel level) {
  if (from.is_rgb()) return std::make_unique<RgbToYuv>(from, planar, level);
  return std::make_unique<Repack>(from, planar, level);
}

int width_of(const PictureFormat& format, int plane) {
  const int shift = plane == 0 ? 0 : av_pix_fmt_desc_get(format.pixels)->log2_chroma_w;
  return AV_CEIL_RSHIFT(format.width, shift);
}

int height_of(const PictureFormat& format, int plane) {
  const int shift = plane == 0 ? 0 : av_pix_fmt_desc_get(format.pixels)->log2_chroma_h;
  return AV_CEIL_RSHIFT(format.height, shift);
}

}  // namespace

PlaneScaler::Plane::Plane(int from_width, int from_height, int to_width, int to_height)
    : across(from_width, to_width),
      columns(from_height, to_height, ScaleSums::weights_for(across.one)),
      row_size(AV_CEIL_RSHIFT(to_width, 4) * 16),
      rows(columns.taps * row_size) {}

bool PlaneScaler::supports(const PictureFormat& from, const PictureFormat& to) {
  const PictureFormat planar = planar_source(from, to);
  if (planar.pixels == AV_PIX_FMT_NONE) return false;
  if (from.is_rgb() && !RgbToYuv::supports(from, planar)) return false;
  for (int plane = 0; plane < 2; ++plane) {
    constexpr int kMost = RowFilter::kLargestRatio;
    if (width_of(planar, plane) > kMost * width_of(to, plane)) return false;
  }
  return true;
}

PlaneScaler::PlaneScaler(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)), source(av_frame_alloc()), strip(av_frame_alloc()) {
  const PictureFormat planar = planar_source(from, to);
  unpack = make_unpacking(from, planar, level);
  make_strip(planar);
  for (int plane = 0; plane < 2; ++plane) {
    planes.emplace_back(width_of(planar, plane), height_of(planar, plane), width_of(to, plane),
                        height_of(to, plane));
  }
  planes.push_back(planes[1]);
  summands.resize(std::max(planes[0].columns.taps, planes[1].columns.taps));
}

void PlaneScaler::make_strip(const PictureFormat& planar) {
  constexpr int kRows = 3 * kStripRows;
  const int stride = (planar.width + 2 * RowFilter::kMargin + 63) / 64 * 64;
  strip_bytes.resize(static_cast<size_t>(stride) * kRows);
  strip->format = planar.pixels;
  strip->width = planar.width;
  for (int plane = 0; plane < 3; ++plane) {
    strip->data[plane] = strip_bytes.data() + stride * kStripRows * plane + RowFilter::kMargin;
    strip->linesize[plane] = stride;
  }
}

void PlaneScaler::run(const AVFrame& in, AVFrame& out) {
  for (Plane& plane : planes) plane.next_in = plane.next_out = 0;
  for (int y = 0; y < in.height; y += kStripRows) {
    strip->height = std::min(kStripRows, in.height - y);
    point_to_rows(*source, in, y, strip->height);
    unpack->run(*source, *strip);
    for (int p = 0; p < 3; ++p) {
      const int rows = height_of({0, strip->height, static_cast<AVPixelFormat>(strip->format)}, p);
      for (int row = 0; row < rows; ++row) take_row(p, row_of(*strip, p, row), out);
    }
  }
}

// The next row of a plane of the source, and the rows of the result that waited for it.
void PlaneScaler::take_row(int plane, const uint8_t* row, AVFrame& out) {
  Plane& p = planes[plane];
  scale_row(row, p.row(p.next_in), p.across);
  ++p.next_in;
  const ColumnFilter& columns = p.columns;
  for (; p.next_out < columns.target_size; ++p.next_out) {
    const int start = columns.starts[p.next_out];
    const int count = std::min(columns.taps, columns.source_size - start);
    if (start + count > p.next_in) return;
    for (int i = 0; i < count; ++i) summands[i] = p.row(start + i);
    combine_rows(
        {summands.data(),
         columns.weights.data() + static_cast<ptrdiff_t>(p.next_out) * columns.taps, count},
        row_of(out, plane, p.next_out), p.across.target_size);
  }
}

void PlaneScaler::scale_row(const uint8_t* from, int16_t* to, const RowFilter& filter) const {
  auto* const row = const_cast<uint8_t*>(from);
  memset(row - RowFilter::kMargin, row[0], RowFilter::kMargin);
  memset(row + filter.source_size, row[filter.source_size - 1], RowFilter::kMargin);
  const RowTaps taps = filter.view();
  if (kernels != nullptr) {
    kernels->scale_row(row, taps, to, (filter.target_size + 15) / 16 * 16);
    return;
  }
  for (int x = 0; x < filter.target_size; ++x) {
    const uint8_t* samples = row + filter.start_of(x);
    int sum = -taps.middle;
    for (int tap = 0; tap < filter.taps; tap += 2) {
      const int8_t* weights = taps.weights + RowTaps::place(x, tap, filter.taps);
      const int pair = weights[0] * samples[tap] + weights[1] * samples[tap + 1];
      sum += pair >> taps.pair_shift;
    }
    to[x] = static_cast<int16_t>(sum);
  }
}

void PlaneScaler::combine_rows(const RowSum& sum, uint8_t* to, int width) const {
  int x = kernels != nullptr ? kernels->combine_rows(sum, to, width) : 0;
  for (; x < width; ++x) {
    int value = ScaleSums::kBias;
    for (int i = 0; i < sum.count; ++i) {
      value += (sum.rows[i][x] * sum.weights[i] + 0x4000) >> 15;
    }
    to[x] = static_cast<uint8_t>(std::clamp(value >> ScaleSums::kBits, 0, 255));
  }
}

}  // namespace zeva
