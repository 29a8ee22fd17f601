#include "audio_enc.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "logger.h"
#include "zeva/status.h"

namespace zeva {
namespace {

// Running out of memory here ends the process: hosts are told so and supervise it.
FramePtr alloc_sound(int sample_fmt, uint64_t layout, int sample_rate, int nb_samples) {
  FramePtr frame(av_frame_alloc());
  if (!frame) {
    err_print(stderr, "Error allocating an audio frame\n");
    exit(1);
  }
  frame->format = sample_fmt;
  frame->channel_layout = layout;
  frame->channels = av_get_channel_layout_nb_channels(layout);
  frame->sample_rate = sample_rate;
  frame->nb_samples = nb_samples;
  if (nb_samples != 0 && av_frame_get_buffer(frame.get(), 0) < 0) {
    err_print(stderr, "[C++] Error allocating an audio buffer\n");
    exit(1);
  }
  return frame;
}

}  // namespace

AudioEnc::AudioEnc(NewStream stream, BaseWriter* writer, Tell tell)
    : EncBase({"audio", "sound", kZevaStatusSoundRefused}, std::move(stream), writer,
              std::move(tell)),
      last_packet(av_packet_alloc()) {}

Status AudioEnc::open(const MovieInfo& settings) {
  info = settings;
  Status opened = open_codec();
  if (!opened.ok) return opened;
  tone.restart(enc->sample_rate);
  const bool variable = (enc->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
  frame = alloc_sound(enc->sample_fmt, enc->channel_layout, enc->sample_rate,
                      variable ? 10000 : enc->frame_size);
  return opened;
}

int AudioEnc::encode(AVFrame* sound) {
  if (sound == nullptr) return encode_prepared(nullptr);
  const int64_t pts = sound->pts;
  sound->pts -= codec_behind;
  const int result = encode_prepared(sound);
  sound->pts = pts;
  return result;
}

void AudioEnc::edit(AVPacket* packet) {
  const bool same = packet->size == last_packet->size &&
                    memcmp(packet->data, last_packet->data, static_cast<size_t>(packet->size)) == 0;
  same_packets = same ? same_packets + 1 : 0;
  packet->pts += codec_behind;
  packet->dts += codec_behind;
  av_packet_unref(last_packet.get());
  if (av_packet_ref(last_packet.get(), packet) < 0) same_packets = 0;
  filter_packet(packet);
}

void AudioEnc::filter_packet(AVPacket* packet) {
  FilterBase* hook = filter;
  if (hook == nullptr) return;
  // The bytes are shared with the copy above.
  if (av_packet_make_writable(packet) >= 0) hook->filter(packet);
}

bool AudioEnc::repeat(int64_t count) {
  for (int64_t n = 0; n < count; ++n) {
    last_packet->pts += last_packet->duration;
    last_packet->dts += last_packet->duration;
    codec_behind += last_packet->duration;
    const PacketPtr copy(av_packet_clone(last_packet.get()));
    if (!copy) return false;
    filter_packet(copy.get());
    if (!write(*copy)) return false;
  }
  return true;
}

AVFrame* AudioEnc::generate_test_frame(AVRational tb) {
  if (!tmp_frame) {
    const auto nb_samples = static_cast<int>(
        av_rescale_rnd(frame->nb_samples, info.src_sample_rate, info.sample_rate, AV_ROUND_UP));
    tmp_frame = alloc_sound(info.sample_fmt,
                            static_cast<uint64_t>(av_get_default_channel_layout(info.channels)),
                            info.src_sample_rate, nb_samples);
  }
  AVFrame* out = tmp_frame.get();
  const int64_t room =
      av_samples_get_buffer_size(nullptr, out->channels, out->nb_samples,
                                 static_cast<AVSampleFormat>(out->format), 1) /
      (av_sample_fmt_is_planar(static_cast<AVSampleFormat>(out->format)) != 0 ? out->channels : 1);
  if (room < int64_t{2} * out->channels * out->nb_samples) {
    err_print(stderr, "Could not allocate temporary audio samples\n");
    return nullptr;
  }
  if (av_compare_ts(next_pts, enc->time_base, tone_period_sec, {1, 1}) >= 0) {
    tone_period_sec += 10;
    tone.restart(enc->sample_rate);
  }
  tone.fill(out, out->channels);
  out->pts = av_rescale_q(next_pts, {1, info.src_sample_rate}, tb);
  next_pts += out->nb_samples;
  return out;
}

}  // namespace zeva
