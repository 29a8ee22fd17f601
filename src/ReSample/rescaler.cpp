#include "rescaler.h"

#include "av_error.h"
#include "logger.h"

namespace ZV {

int NxRescale::config(AVFrame* dst, AVFrame* src, AVRational tb) {
  time_base = tb;
  src_width = src->width;
  src_height = src->height;
  src_format = src->format;
  if (src->width == dst->width && src->height == dst->height && src->format == dst->format) {
    return 0;
  }
  sws.reset(sws_getContext(src->width, src->height, static_cast<AVPixelFormat>(src->format),
                           dst->width, dst->height, static_cast<AVPixelFormat>(dst->format),
                           SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!sws) {
    zeva::err_print(stderr, "Could not initialize the conversion context\n");
    return -1;
  }
  out_frame.reset(av_frame_clone(dst));
  return out_frame ? 0 : -1;
}

AVFrame* NxRescale::rescale(AVFrame* in, const AVRational* in_tb) {
  if (in == nullptr || !as_announced(*in)) return nullptr;
  AVFrame* out = in;
  if (sws) {
    out_refs = zeva::release_held_buffers(out_frame.get(), out_refs);
    if (out_refs < 0) return nullptr;
    sws_scale(sws.get(), in->data, in->linesize, 0, in->height, out_frame->data,
              out_frame->linesize);
    out = out_frame.get();
  }
  out->pts = av_rescale_q(in->pts, *in_tb, time_base);
  return out;
}

// The scaler and the encoder read as many lines of as many bytes as the announced size has.
bool NxRescale::as_announced(const AVFrame& in) const {
  if (in.data[0] != nullptr && in.width == src_width && in.height == src_height &&
      in.format == src_format) {
    return true;
  }
  ZEVA_LOG(zeva::kLogError, "refused a picture of %dx%d in format %d instead of %dx%d in %d",
           in.width, in.height, in.format, src_width, src_height, src_format);
  return false;
}

}  // namespace ZV
