#include "video_enc.h"

#include <cstdlib>
#include <cstring>

#include "av_error.h"
#include "logger.h"
#include "test_signal.h"

namespace zeva {
namespace {

FramePtr alloc_picture(int pix_fmt, int width, int height) {
  FramePtr picture(av_frame_alloc());
  if (!picture) return nullptr;
  picture->format = pix_fmt;
  picture->width = width;
  picture->height = height;
  if (av_frame_get_buffer(picture.get(), 0) < 0) {
    err_print(stderr, "Could not allocate frame data.\n");
  }
  return picture;
}

// Running out of memory for a scaler ends the process: there is no recording without it.
SwsPtr make_scaler(int src_width, int src_height, int src_fmt, int dst_width, int dst_height,
                   int dst_fmt) {
  SwsPtr scaler(sws_getContext(src_width, src_height, static_cast<AVPixelFormat>(src_fmt),
                               dst_width, dst_height, static_cast<AVPixelFormat>(dst_fmt),
                               SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!scaler) {
    err_print(stderr, "Could not initialize the conversion context\n");
    exit(1);
  }
  return scaler;
}

}  // namespace

VideoEnc::~VideoEnc() { delete filter; }

void VideoEnc::open(AVFormatContext* /*oc*/, const AVCodec* codec, OutputStream& ost,
                    AVDictionary* options, const MovieInfo& settings) {
  info = settings;
  AVCodecContext* enc = ost.enc.get();
  AVDictionary* copy = nullptr;
  av_dict_copy(&copy, options, 0);
  const int result = avcodec_open2(enc, codec, &copy);
  av_dict_free(&copy);
  if (result < 0) {
    const char* text = av_error_text(result);
    ZEVA_LOG(kLogError, "Could not open video codec: %s", text);
    throw std::string("Could not open video codec: ") + text;
  }
  avcodec_parameters_from_context(ost.st->codecpar, enc);
  ost.frame = alloc_picture(enc->pix_fmt, enc->width, enc->height);
  if (!ost.frame) {
    err_print(stderr, "Could not allocate video frame\n");
    throw std::string("Could not allocate video frame");
  }
  ost.tmp_frame.reset();
}

int VideoEnc::encode(AVFormatContext* oc, OutputStream& ost, AVFrame* frame) {
  if (oc == nullptr) return -1;
  av_packet_unref(ost.pkt.get());
  if (frame != nullptr) {
    if (filter != nullptr) frame = filter->filter(frame);
    if (frame != nullptr) frame = convert(ost, frame);
    if (frame == nullptr) return 0;  // swallowed by the filter, or refused; null ends the stream
  }
  const int sent = avcodec_send_frame(ost.enc.get(), frame);
  if (sent < 0) {
    ZEVA_LOG(kLogError, "[video] enc frame failed: %s", av_error_text(sent));
    return -2;
  }
  return drain(ost, "video", [](AVPacket* packet) {
    // The codec's time base is one frame. Without a duration an MP4 would end where its last
    // picture begins, and players would not show it.
    if (packet->duration == 0) packet->duration = 1;
  });
}

AVFrame* VideoEnc::convert(OutputStream& ost, AVFrame* frame) {
  const AVCodecContext& enc = *ost.enc;
  if (frame->format == enc.pix_fmt && frame->width == enc.width && frame->height == enc.height) {
    return frame;
  }
  if (!conversion_scaler) {
    conversion_scaler =
        make_scaler(frame->width, frame->height, frame->format, enc.width, enc.height, enc.pix_fmt);
    conversion_width = frame->width;
    conversion_height = frame->height;
    conversion_format = frame->format;
  }
  if (frame->width != conversion_width || frame->height != conversion_height ||
      frame->format != conversion_format) {
    ZEVA_LOG(kLogError, "refused a picture of %dx%d in format %d: the first was %dx%d in %d",
             frame->width, frame->height, frame->format, conversion_width, conversion_height,
             conversion_format);
    return nullptr;
  }
  AVFrame* own = ost.frame.get();
  frame_refs = release_held_buffers(own, frame_refs);
  if (frame_refs < 0) exit(1);
  sws_scale(conversion_scaler.get(), frame->data, frame->linesize, 0, frame->height, own->data,
            own->linesize);
  own->pts = frame->pts;
  own->colorspace = frame->colorspace;
  own->color_range = frame->color_range;
  err_print(stderr, "---------- V pts: %lld\n", static_cast<long long>(own->pts));
  return own;
}

AVFrame* VideoEnc::generate_test_frame(OutputStream& ost, AVRational tb) {
  if (av_compare_ts(ost.next_pts, ost.enc->time_base, pattern_period_sec, {1, 1}) >= 0) {
    pattern_counter = 0;
    pattern_period_sec += 10;
  }
  if (!ost.tmp_frame) {
    ost.tmp_frame = alloc_picture(info.src_pix_fmt, info.src_width, info.src_height);
    if (!ost.tmp_frame) {
      err_print(stderr, "Could not allocate temporary picture\n");
      return nullptr;
    }
  }
  if (!draw_test_picture(ost)) return nullptr;
  ost.tmp_frame->pts = av_rescale_q(ost.next_pts, {1, info.fps}, tb);
  ++ost.next_pts;
  return ost.tmp_frame.get();
}

bool VideoEnc::draw_test_picture(OutputStream& ost) {
  AVFrame* out = ost.tmp_frame.get();
  if (av_frame_make_writable(out) < 0) exit(1);
  if (info.src_pix_fmt == AV_PIX_FMT_YUV420P) {
    draw_colour_pattern(out, pattern_counter++);
    return true;
  }
  if (!pattern_scaler) {
    pattern_scaler = make_scaler(info.src_width, info.src_height, AV_PIX_FMT_YUV420P, out->width,
                                 out->height, info.src_pix_fmt);
  }
  const FramePtr fresh = alloc_picture(AV_PIX_FMT_YUV420P, info.src_width, info.src_height);
  if (!fresh || fresh->buf[0] == nullptr) return false;
  draw_colour_pattern(fresh.get(), pattern_counter++);
  sws_scale(pattern_scaler.get(), fresh->data, fresh->linesize, 0, fresh->height, out->data,
            out->linesize);
  return true;
}

}  // namespace zeva
