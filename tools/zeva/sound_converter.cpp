#include "sound_converter.h"

#include <algorithm>

namespace zeva_tool {

void SoundConverter::configure(int sample_rate, int channel_count) {
  rate = sample_rate;
  channels = channel_count;
}

bool SoundConverter::prepare(const AVFrame& frame) {
  auto layout = static_cast<int64_t>(frame.channel_layout);
  if (av_get_channel_layout_nb_channels(frame.channel_layout) != frame.channels) {
    layout = av_get_default_channel_layout(frame.channels);
  }
  bool same = resampler && layout == source_layout && frame.format == source_format &&
              frame.sample_rate == source_rate;
  if (same) return true;
  resampler.reset(swr_alloc_set_opts(
      nullptr, av_get_default_channel_layout(channels), AV_SAMPLE_FMT_S16, rate, layout,
      static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr));
  if (!resampler || swr_init(resampler.get()) < 0) {
    resampler.reset();
    return false;
  }
  source_layout = layout;
  source_format = frame.format;
  source_rate = frame.sample_rate;
  return true;
}

bool SoundConverter::convert(const AVFrame& frame) {
  pcm.clear();
  if (!prepare(frame)) return false;
  int room = swr_get_out_samples(resampler.get(), frame.nb_samples);
  if (room <= 0) return false;
  pcm.resize(static_cast<size_t>(room) * channels);
  auto* target = reinterpret_cast<uint8_t*>(pcm.data());
  int got = swr_convert(resampler.get(), &target, room,
                        const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples);
  pcm.resize(static_cast<size_t>(got > 0 ? got : 0) * channels);
  return got > 0;
}

void SoundConverter::leave_out(int64_t count) {
  count = std::clamp<int64_t>(count, 0, samples());
  pcm.erase(pcm.begin(), pcm.begin() + static_cast<std::ptrdiff_t>(count * channels));
}

void SoundConverter::make_silence(int64_t samples) {
  pcm.assign(static_cast<size_t>(samples) * channels, 0);
}

}  // namespace zeva_tool
