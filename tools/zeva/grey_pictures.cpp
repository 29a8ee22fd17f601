#include "grey_pictures.h"

#include <algorithm>

#include "pixel_formats.h"

namespace zeva_tool {

AVPixelFormat GreyPictures::format_with_chroma(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  bool grey = d && d->nb_components == 1 && has_sample_planes(format) && !is_rgb(format);
  AVPixelFormat other = grey ? planar_format(false, 1, 1, d->comp[0].depth) : AV_PIX_FMT_NONE;
  return other == AV_PIX_FMT_NONE ? format : other;
}

bool GreyPictures::make_chroma(const AVFrame& frame, AVPixelFormat format) {
  if (chroma && chroma->width == frame.width && chroma->height == frame.height &&
      chroma->format == format) {
    return true;
  }
  chroma.reset(av_frame_alloc());
  chroma->width = frame.width;
  chroma->height = frame.height;
  chroma->format = format;
  if (av_frame_get_buffer(chroma.get(), 0) < 0) {
    chroma.reset();
    return false;
  }
  int middle = 1 << (depth_of(format) - 1);
  int lines = AV_CEIL_RSHIFT(frame.height, 1);
  for (int plane : {1, 2}) {
    uint8_t* data = chroma->data[plane];
    int bytes = chroma->linesize[plane] * lines;
    if (depth_of(format) <= 8) {
      std::fill_n(data, bytes, static_cast<uint8_t>(middle));
    } else {
      std::fill_n(reinterpret_cast<uint16_t*>(data), bytes / 2, static_cast<uint16_t>(middle));
    }
  }
  return true;
}

const AVFrame* GreyPictures::with_chroma(const AVFrame& frame) {
  const AVPixelFormat format = format_with_chroma(static_cast<AVPixelFormat>(frame.format));
  if (format == frame.format) return &frame;
  if (!make_chroma(frame, format)) return nullptr;
  av_frame_unref(view.get());
  av_frame_copy_props(view.get(), &frame);
  view->width = frame.width;
  view->height = frame.height;
  view->format = format;
  view->data[0] = frame.data[0];
  view->linesize[0] = frame.linesize[0];
  for (int plane : {1, 2}) {
    view->data[plane] = chroma->data[plane];
    view->linesize[plane] = chroma->linesize[plane];
  }
  return view.get();
}

}  // namespace zeva_tool
