#include "rescaler.h"

#include "av_error.h"
#include "logger.h"

namespace ZV {

int NxRescale::config(AVFrame* dst, AVFrame* src, AVRational tb) {
  time_base = tb;
  announced = {src->width, src->height, src->format};
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
  if (in == nullptr || in->data[0] == nullptr) return nullptr;
  AVFrame* out = in;
  if (sws && announced.matches(*in)) {
    out_refs = zeva::release_held_buffers(out_frame.get(), out_refs);
    if (out_refs < 0) {
      ZEVA_LOG(zeva::kLogError, "refused a picture: %s", zeva::av_error_text(out_refs));
      return nullptr;
    }
    sws_scale(sws.get(), in->data, in->linesize, 0, in->height, out_frame->data,
              out_frame->linesize);
    out = out_frame.get();
  } else if (sws && !Shape{out_frame->width, out_frame->height, out_frame->format}.matches(*in)) {
    ZEVA_LOG(zeva::kLogError, "refused a picture of %dx%d in format %d instead of %dx%d in %d",
             in->width, in->height, in->format, announced.width, announced.height,
             announced.format);
    return nullptr;
  }
  out->pts = av_rescale_q(in->pts, *in_tb, time_base);
  out->pkt_duration = av_rescale_q(in->pkt_duration, *in_tb, time_base);
  return out;
}

bool NxRescale::Shape::matches(const AVFrame& frame) const {
  return frame.width == width && frame.height == height && frame.format == format;
}

}  // namespace ZV
