#include "picture_rows.h"

#include "picture_step.h"

namespace zeva {

void point_to_rows(AVFrame& view, const AVFrame& picture, int y, int rows) {
  const auto format = static_cast<AVPixelFormat>(picture.format);
  const int shift = av_pix_fmt_desc_get(format)->log2_chroma_h;
  for (int plane = 0; plane < 4; ++plane) {
    view.linesize[plane] = picture.linesize[plane];
    view.data[plane] = nullptr;
    if (picture.data[plane] == nullptr) continue;
    const bool is_chroma = plane == 1 || plane == 2;
    view.data[plane] = const_cast<uint8_t*>(row_of(picture, plane, is_chroma ? y >> shift : y));
  }
  view.format = format;
  view.width = picture.width;
  view.height = rows;
}

}  // namespace zeva
