#include "rescaler.h"

#include "av_error.h"
#include "logger.h"

namespace ZV {

namespace {

bool same_shape(const AVFrame& frame, const zeva::PictureFormat& format) {
  return frame.width == format.width && frame.height == format.height &&
         frame.format == format.pixels;
}

}  // namespace

int NxRescale::config(AVFrame* dst, AVFrame* src, AVRational tb) {
  time_base = tb;
  announced = zeva::settle(zeva::format_of(*src));
  wanted = zeva::settle(zeva::format_of(*dst));
  if (announced != wanted && !converter.configure(announced, wanted)) {
    zeva::err_print(stderr, "Could not initialize the conversion context\n");
    return -1;
  }
  out_frame.reset(av_frame_clone(dst));
  return out_frame ? 0 : -1;
}

AVFrame* NxRescale::rescale(AVFrame* in, const AVRational* in_tb) {
  if (in == nullptr || in->data[0] == nullptr) return nullptr;
  const bool as_announced = same_shape(*in, announced);
  if (!as_announced && !same_shape(*in, wanted)) {
    ZEVA_LOG(zeva::kLogError, "refused a picture of %dx%d in format %d instead of %dx%d in %d",
             in->width, in->height, in->format, announced.width, announced.height,
             announced.pixels);
    return nullptr;
  }
  const zeva::PictureFormat from = zeva::described(*in, as_announced ? announced : wanted);
  AVFrame* const out = from == wanted ? in : convert(in, from);
  if (out == nullptr) return nullptr;
  out->pts = av_rescale_q(in->pts, *in_tb, time_base);
  out->pkt_duration = av_rescale_q(in->pkt_duration, *in_tb, time_base);
  return out;
}

AVFrame* NxRescale::convert(AVFrame* in, const zeva::PictureFormat& from) {
  if (from != converter.source() &&
      (!zeva::can_convert(from, wanted) || !converter.configure(from, wanted))) {
    ZEVA_LOG(zeva::kLogError, "refused a picture of matrix %d", from.matrix);
    return nullptr;
  }
  out_refs = zeva::release_held_buffers(out_frame.get(), out_refs);
  if (out_refs < 0) {
    ZEVA_LOG(zeva::kLogError, "refused a picture: %s", zeva::av_error_text(out_refs));
    return nullptr;
  }
  converter.convert(*in, *out_frame);
  return out_frame.get();
}

}  // namespace ZV
