#include "rescaler.h"

#include "av_error.h"
#include "logger.h"

namespace ZV {

int NxRescale::config(AVFrame* dst, AVFrame* src, AVRational tb) {
  time_base = tb;
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
  AVFrame* out = in;
  if (sws) {
    out_refs = zeva::release_held_buffers(out_frame.get(), out_refs);
    if (out_refs < 0) return nullptr;
    sws_scale(sws.get(), in->data, in->linesize, 0, in->height, out_frame->data,
              out_frame->linesize);
    out = out_frame.get();
  }
  if (out != nullptr) out->pts = av_rescale_q(in->pts, *in_tb, time_base);
  return out;
}

}  // namespace ZV
