#include "ff_resample.h"

#include "av_error.h"
#include "logger.h"

namespace zeva {
namespace {

constexpr int kMaxChannels = 8;

bool is_valid(AVSampleFormat format, int rate, int channels) {
  return av_get_bytes_per_sample(format) > 0 && rate > 0 && channels > 0 &&
         channels <= kMaxChannels;
}

}  // namespace

bool FFResample::init(AVSampleFormat in_format, int in_rate, int in_channels,
                      AVSampleFormat out_format, int out_rate, int out_channels) {
  // FFmpeg divides by the rates before it looks at them.
  if (!is_valid(in_format, in_rate, in_channels) || !is_valid(out_format, out_rate, out_channels)) {
    return false;
  }
  swr.reset(swr_alloc_set_opts(nullptr, av_get_default_channel_layout(out_channels), out_format,
                               out_rate, av_get_default_channel_layout(in_channels), in_format,
                               in_rate, 0, nullptr));
  if (!swr || swr_init(swr.get()) < 0) return false;
  fifo.reset(av_audio_fifo_alloc(out_format, out_channels, 1));
  in = {FramePtr(av_frame_alloc()), in_format, in_rate, in_channels, 0};
  out = {FramePtr(av_frame_alloc()), out_format, out_rate, out_channels, 0};
  return fifo && in.frame && out.frame;
}

AVFrame* FFResample::get_frame(bool for_output, int nb_samples) {
  Side& side = for_output ? out : in;
  AVFrame* frame = side.frame.get();
  if (nb_samples > 0 && nb_samples <= side.room && av_frame_is_writable(frame) > 0) {
    frame->nb_samples = nb_samples;
    return frame;
  }
  av_frame_unref(frame);
  side.room = 0;
  frame->format = side.format;
  frame->sample_rate = side.sample_rate;
  frame->channels = side.channels;
  frame->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(side.channels));
  frame->nb_samples = nb_samples;
  const int result = av_frame_get_buffer(frame, 0);
  if (result < 0) {
    ZEVA_LOG(kLogError, "get buffer error: %s\n", av_error_text(result));
    return nullptr;
  }
  side.room = nb_samples;
  return frame;
}

bool FFResample::push(const AVFrame* frame) {
  if (frame == nullptr) ended = true;
  if (ended) return false;
  const int64_t held = swr_get_delay(swr.get(), in.sample_rate);
  const int64_t most =
      av_rescale_rnd(held + frame->nb_samples, out.sample_rate, in.sample_rate, AV_ROUND_UP);
  if (most < 0 || most > INT_MAX) return false;
  AVFrame* converted = get_frame(true, static_cast<int>(most));
  if (converted == nullptr) return false;
  auto source = const_cast<const uint8_t**>(frame->extended_data);
  const int count = swr_convert(swr.get(), converted->extended_data, converted->nb_samples, source,
                                frame->nb_samples);
  if (count < 0) return false;
  auto data = reinterpret_cast<void**>(converted->extended_data);
  return av_audio_fifo_write(fifo.get(), data, count) == count;
}

AVFrame* FFResample::read(int nb_samples) {
  AVFrame* frame = get_frame(true, nb_samples);
  if (frame == nullptr) return nullptr;
  auto data = reinterpret_cast<void**>(frame->extended_data);
  const int count = av_audio_fifo_read(fifo.get(), data, nb_samples);
  return count == nb_samples ? frame : nullptr;
}

}  // namespace zeva
