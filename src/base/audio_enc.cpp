#include "audio_enc.h"

#include <cstdlib>

#include "av_error.h"
#include "logger.h"

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

void AudioEnc::open(AVFormatContext* /*oc*/, const AVCodec* codec, OutputStream& ost,
                    AVDictionary* options, const MovieInfo& settings) {
  info = settings;
  AVCodecContext* enc = ost.enc.get();
  AVDictionary* local = nullptr;
  av_dict_copy(&local, options, 0);
  const int result = avcodec_open2(enc, codec, &local);
  av_dict_free(&local);
  if (result < 0) {
    const char* text = av_error_text(result);
    ZEVA_LOG(kLogError, "Could not open audio codec: %s", text);
    throw std::string("Could not open audio codec: ") + text;
  }
  avcodec_parameters_from_context(ost.st->codecpar, enc);
  tone.restart(enc->sample_rate);
  ost.tmp_frame.reset();
  const bool variable = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
  ost.frame = alloc_sound(enc->sample_fmt, enc->channel_layout, enc->sample_rate,
                          variable ? 10000 : enc->frame_size);
}

int AudioEnc::encode(AVFormatContext* oc, OutputStream& ost, AVFrame* frame) {
  if (oc == nullptr) return -1;
  av_packet_unref(ost.pkt.get());
  const int sent = avcodec_send_frame(ost.enc.get(), frame);
  if (sent < 0) {
    ZEVA_LOG(kLogError, "[audio] enc frame failed: %s", av_error_text(sent));
    return -2;
  }
  return drain(ost, "audio", [this](AVPacket* packet) {
    if (filter != nullptr) filter->filter(packet);
  });
}

AVFrame* AudioEnc::generate_test_frame(OutputStream& ost, AVRational tb) {
  if (!ost.tmp_frame) {
    const auto nb_samples = static_cast<int>(
        av_rescale_rnd(ost.frame->nb_samples, info.src_sample_rate, info.sample_rate, AV_ROUND_UP));
    ost.tmp_frame = alloc_sound(info.sample_fmt,
                                static_cast<uint64_t>(av_get_default_channel_layout(info.channels)),
                                info.src_sample_rate, nb_samples);
  }
  AVFrame* frame = ost.tmp_frame.get();
  const int64_t room =
      av_samples_get_buffer_size(nullptr, frame->channels, frame->nb_samples,
                                 static_cast<AVSampleFormat>(frame->format), 1) /
      (av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame->format)) != 0 ? frame->channels
                                                                                : 1);
  if (room < int64_t{2} * frame->channels * frame->nb_samples) {
    err_print(stderr, "Could not allocate temporary audio samples\n");
    return nullptr;
  }
  if (av_compare_ts(ost.next_pts, ost.enc->time_base, tone_period_sec, {1, 1}) >= 0) {
    tone_period_sec += 10;
    tone.restart(ost.enc->sample_rate);
  }
  tone.fill(frame, frame->channels);
  frame->pts = av_rescale_q(ost.next_pts, {1, info.src_sample_rate}, tb);
  ost.next_pts += frame->nb_samples;
  return frame;
}

}  // namespace zeva
