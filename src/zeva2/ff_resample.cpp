#include "ff_resample.h"

#include <climits>

#include "av_error.h"
#include "logger.h"

namespace zeva {
namespace {

constexpr int kMaxChannels = 8;

}  // namespace

bool FFResample::init(AVSampleFormat in_format, int in_rate, int in_channels,
                      AVSampleFormat out_format, int out_rate, int out_channels) {
  in = {in_format, in_rate, in_channels};
  out = {out_format, out_rate, out_channels};
  if (!make_resampler()) return false;
  fifo.reset(av_audio_fifo_alloc(out_format, out_channels, 1));
  out_frame.reset(av_frame_alloc());
  return fifo && out_frame;
}

bool FFResample::is_valid(const Sound& sound) {
  return av_get_bytes_per_sample(sound.format) > 0 && sound.sample_rate > 0 && sound.channels > 0 &&
         sound.channels <= kMaxChannels;
}

bool FFResample::make_resampler() {
  // FFmpeg divides by the rates before it looks at them.
  if (!is_valid(in) || !is_valid(out)) return false;
  swr.reset(swr_alloc_set_opts(nullptr, av_get_default_channel_layout(out.channels), out.format,
                               out.sample_rate, av_get_default_channel_layout(in.channels),
                               in.format, in.sample_rate, 0, nullptr));
  if (swr && swr_init(swr.get()) < 0) swr.reset();
  return swr != nullptr;
}

bool FFResample::follow(const AVFrame& frame) {
  const Sound now{static_cast<AVSampleFormat>(frame.format), frame.sample_rate, frame.channels};
  if (swr && now.format == in.format && now.sample_rate == in.sample_rate &&
      now.channels == in.channels) {
    return true;
  }
  in = now;
  return make_resampler();
}

bool FFResample::push(const AVFrame* frame) {
  if (ended) return false;
  ended = frame == nullptr;
  if (ended) {
    (void)convert(nullptr, 0);  // what the rate conversion holds back
    return false;
  }
  return follow(*frame) &&
         convert(const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
}

bool FFResample::convert(const uint8_t** planes, int nb_samples) {
  if (!swr) return false;
  const int64_t held = swr_get_delay(swr.get(), in.sample_rate);
  const int64_t most =
      av_rescale_rnd(held + nb_samples, out.sample_rate, in.sample_rate, AV_ROUND_UP);
  if (most < 0 || most > INT_MAX) return false;
  if (most == 0) return true;
  const AVFrame* converted = get_frame(static_cast<int>(most));
  if (converted == nullptr) return false;
  const int count =
      swr_convert(swr.get(), converted->extended_data, converted->nb_samples, planes, nb_samples);
  if (count < 0) return false;
  auto* data = reinterpret_cast<void**>(converted->extended_data);
  return av_audio_fifo_write(fifo.get(), data, count) == count;
}

AVFrame* FFResample::read(int nb_samples) {
  AVFrame* frame = get_frame(nb_samples);
  if (frame == nullptr) return nullptr;
  auto* data = reinterpret_cast<void**>(frame->extended_data);
  return av_audio_fifo_read(fifo.get(), data, nb_samples) == nb_samples ? frame : nullptr;
}

// The buffers are used again unless an encoder still holds them.
AVFrame* FFResample::get_frame(int nb_samples) {
  AVFrame* frame = out_frame.get();
  if (nb_samples > 0 && nb_samples <= room && av_frame_is_writable(frame) > 0) {
    frame->nb_samples = nb_samples;
    return frame;
  }
  av_frame_unref(frame);
  room = 0;
  frame->format = out.format;
  frame->sample_rate = out.sample_rate;
  frame->channels = out.channels;
  frame->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(out.channels));
  frame->nb_samples = nb_samples;
  const int result = av_frame_get_buffer(frame, 0);
  if (result < 0) {
    ZEVA_LOG(kLogError, "get buffer error: %s\n", av_error_text(result));
    return nullptr;
  }
  room = nb_samples;
  return frame;
}

}  // namespace zeva
