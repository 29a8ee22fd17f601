#include "band_converter.h"

#include <algorithm>
#include <thread>

#include "picture_rows.h"

namespace zeva {
namespace {

// Below, a thread takes about a millisecond, and waking another one would take a good part of that.
constexpr int64_t kLargePixels = 1920 * 1088;

bool is_large(const PictureFormat& format) {
  return int64_t{format.width} * format.height > kLargePixels;
}

}  // namespace

int BandConverter::usual_threads() {
  return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMostBands);
}

bool BandConverter::configure(const PictureFormat& source, const PictureFormat& to, int threads) {
  from = source;
  parts.clear();
  parts.emplace_back();
  if (!parts[0].converter.configure(from, to)) return false;
  if (threads == 1 || !is_large(from) || !parts[0].converter.goes_row_by_row()) return true;
  if (!team) team = std::make_unique<ThreadTeam>(threads);
  return divide(to, team->size());
}

// Bands begin with even rows, since two rows may share their chroma.
bool BandConverter::divide(const PictureFormat& to, int threads) {
  const int pairs = from.height / 2;
  std::vector<Band> bands(threads);
  for (int i = 0; i < threads; ++i) {
    Band& band = bands[i];
    band.first_row = pairs * i / threads * 2;
    const int end = i + 1 < threads ? pairs * (i + 1) / threads * 2 : from.height;
    PictureFormat band_from = from;
    PictureFormat band_to = to;
    band_from.height = band_to.height = end - band.first_row;
    band.in.reset(av_frame_alloc());
    band.out.reset(av_frame_alloc());
    if (!band.in || !band.out || !band.converter.configure(band_from, band_to)) return false;
  }
  parts = std::move(bands);
  return true;
}

void BandConverter::convert(const AVFrame& in, AVFrame& out) {
  if (parts.size() == 1) {
    parts[0].converter.convert(in, out);
    return;
  }
  team->run([&](int number) {
    Band& band = parts[number];
    const int rows = band.converter.source().height;
    point_to_rows(*band.in, in, band.first_row, rows);
    point_to_rows(*band.out, out, band.first_row, rows);
    band.converter.convert(*band.in, *band.out);
  });
}

}  // namespace zeva
