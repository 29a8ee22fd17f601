#include "video_enc.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "logger.h"
#include "test_signal.h"
#include "zeva/status.h"

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
void configure_or_exit(PictureConverter& converter, const PictureFormat& from,
                       const PictureFormat& to) {
  if (converter.configure(from, to)) return;
  err_print(stderr, "Could not initialize the conversion context\n");
  exit(1);
}

}  // namespace

VideoEnc::VideoEnc(NewStream stream, BaseWriter* writer, Tell tell)
    : EncBase({"video", "a picture", kZevaStatusPictureRefused}, std::move(stream), writer,
              std::move(tell)),
      times(timing),
      borrowed(av_frame_alloc()) {}

VideoEnc::~VideoEnc() { delete filter; }

Status VideoEnc::open(const MovieInfo& settings) {
  info = settings;
  Status opened = open_codec();
  if (!opened.ok) return opened;
  rate = VariableBitRate(*enc);
  current_bit_rate = enc->bit_rate;
  frame = alloc_picture(enc->pix_fmt, enc->width, enc->height);
  if (frame && borrowed) {
    frame->colorspace = enc->colorspace;
    frame->color_range = enc->color_range;
    movie = settle(format_of(*frame));
    return opened;
  }
  err_print(stderr, "Could not allocate video frame\n");
  return Status::failure(AVERROR(ENOMEM), "Could not allocate video frame");
}

AVFrame* VideoEnc::filtered(AVFrame* picture) {
  FilterBase* hook = filter;
  return hook != nullptr ? hook->filter(picture) : picture;
}

int VideoEnc::encode(AVFrame* picture, int64_t duration) {
  codec_us = converting_us = 0;
  if (!enc) return kNotOpen;
  if (picture == nullptr) return encode_prepared(nullptr);
  picture = convert(picture);
  if (picture == nullptr) return kLeftOut;
  if (!borrow(*picture)) {
    report_refusal(AVERROR(ENOMEM), false);
    return kRefusedByCodec;
  }
  if (timing.variable) borrowed->pts = times.enter(borrowed->pts, duration);
  return encode_borrowed();
}

// A request that the codec did not take along counts for the next picture.
int VideoEnc::encode_borrowed() {
  const bool is_key = key_wanted.exchange(false);
  if (is_key) borrowed->pict_type = AV_PICTURE_TYPE_I;
  const int result = encode_prepared(borrowed.get());
  if (is_key && result == kRefusedByCodec) key_wanted = true;
  return result;
}

void VideoEnc::set_bit_rate(int64_t bit_rate) {
  if (!enc) return;
  rate.set(*enc, bit_rate);
  current_bit_rate = enc->bit_rate;
}

void VideoEnc::edit(AVPacket* packet) {
  if (timing.variable) return times.stamp(*packet);
  // The codec's time base is one frame. Without a duration an MP4 would end where its last picture
  // begins, and players would not show it.
  if (packet->duration == 0) packet->duration = 1;
}

// Without its buffers, so that the codec copies what it wants to keep: the host's frame is
// overwritten when the call returns, the converters' frames by the next picture.
bool VideoEnc::borrow(const AVFrame& picture) {
  AVFrame& view = *borrowed;
  av_frame_unref(&view);
  if (av_frame_copy_props(&view, &picture) < 0) return false;
  view.format = picture.format;
  view.width = picture.width;
  view.height = picture.height;
  std::copy(std::begin(picture.data), std::end(picture.data), view.data);
  std::copy(std::begin(picture.linesize), std::end(picture.linesize), view.linesize);
  // A decoder leaves the type that the picture had in its stream. To an encoder it is an order.
  view.pict_type = AV_PICTURE_TYPE_NONE;
  return true;
}

AVFrame* VideoEnc::convert(AVFrame* picture) {
  const PictureFormat given = described(*picture, movie);
  if (given == movie) return picture;
  const Lap lap(converting_us);
  if (!can_convert(given, movie)) {
    ZEVA_LOG(kLogError, "refused a picture of %dx%d in format %d, matrix %d", picture->width,
             picture->height, picture->format, picture->colorspace);
    return nullptr;
  }
  if (given != from_filter.source()) configure_or_exit(from_filter, given, movie);
  from_filter.convert(*picture, *frame);
  frame->pts = picture->pts;
  err_print(stderr, "---------- V pts: %lld\n", static_cast<long long>(frame->pts));
  return frame.get();
}

AVFrame* VideoEnc::generate_test_frame(AVRational tb) {
  if (av_compare_ts(next_pts, timing.interval, pattern_period_sec, {1, 1}) >= 0) {
    pattern_counter = 0;
    pattern_period_sec += 10;
  }
  if (!tmp_frame) {
    tmp_frame = alloc_picture(info.src_pix_fmt, info.src_width, info.src_height);
    if (!tmp_frame) {
      err_print(stderr, "Could not allocate temporary picture\n");
      return nullptr;
    }
  }
  if (!draw_test_picture()) return nullptr;
  tmp_frame->pts = av_rescale_q(next_pts, timing.interval, tb);
  ++next_pts;
  return tmp_frame.get();
}

bool VideoEnc::draw_test_picture() {
  AVFrame* out = tmp_frame.get();
  if (av_frame_make_writable(out) < 0) exit(1);
  if (info.src_pix_fmt == AV_PIX_FMT_YUV420P) {
    draw_colour_pattern(out, pattern_counter++);
    return true;
  }
  if (from_pattern.source().width == 0) {
    configure_or_exit(from_pattern,
                      settle({host.width, host.height, AV_PIX_FMT_YUV420P,
                              host.is_rgb() ? movie.matrix : host.matrix,
                              host.is_rgb() ? movie.range : host.range}),
                      host);
  }
  const FramePtr fresh = alloc_picture(AV_PIX_FMT_YUV420P, info.src_width, info.src_height);
  if (!fresh || fresh->buf[0] == nullptr) return false;
  draw_colour_pattern(fresh.get(), pattern_counter++);
  from_pattern.convert(*fresh, *out);
  return true;
}

}  // namespace zeva
