#include "media.h"

#include <algorithm>
#include <cstring>

MovieInfo small_movie(const std::string& url) {
  MovieInfo info{};
  snprintf(info.url, sizeof info.url, "%s", url.c_str());
  info.audio_bitrate = 64;
  info.src_sample_rate = info.sample_rate = 48000;
  info.channels = 2;
  info.sample_fmt = AV_SAMPLE_FMT_S16;
  info.video_bitrate = 200;
  info.width = info.src_width = 64;
  info.height = info.src_height = 48;
  info.fps = 25;
  info.gop_size = 12;
  info.src_pix_fmt = AV_PIX_FMT_BGRA;
  info.pix_fmt = AV_PIX_FMT_YUV420P;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  info.preset = kQualityUltrafast;
  info.profile = kProfileHigh;
  info.tune = kTuneZerolatency;
  return info;
}

zeva::FramePtr make_sound(AVSampleFormat format, int sample_rate, int nb_samples, int64_t pts,
                          int value) {
  zeva::FramePtr frame(av_frame_alloc());
  frame->format = format;
  frame->channel_layout = AV_CH_LAYOUT_STEREO;
  frame->channels = 2;
  frame->sample_rate = sample_rate;
  frame->nb_samples = nb_samples;
  frame->pts = pts;
  av_frame_get_buffer(frame.get(), 0);
  av_samples_set_silence(frame->data, 0, nb_samples, 2, format);
  if (format == AV_SAMPLE_FMT_S16) {
    std::fill_n(reinterpret_cast<int16_t*>(frame->data[0]), 2 * nb_samples,
                static_cast<int16_t>(value));
  }
  return frame;
}

zeva::PacketPtr make_packet(int stream_index, int64_t pts, int64_t dts, int64_t duration, int size,
                            bool key) {
  zeva::PacketPtr packet(av_packet_alloc());
  av_new_packet(packet.get(), size);
  memset(packet->data, 0x11, static_cast<size_t>(size));
  packet->stream_index = stream_index;
  packet->pts = pts;
  packet->dts = dts;
  packet->duration = duration;
  packet->flags = key ? AV_PKT_FLAG_KEY : 0;
  return packet;
}

AVStream* add_picture_stream(AVFormatContext* oc) {
  AVStream* st = avformat_new_stream(oc, nullptr);
  st->time_base = {1, 12800};
  st->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
  st->codecpar->codec_id = AV_CODEC_ID_MPEG4;
  st->codecpar->format = AV_PIX_FMT_YUV420P;
  st->codecpar->width = 64;
  st->codecpar->height = 48;
  return st;
}

AVStream* add_sound_stream(AVFormatContext* oc) {
  static constexpr uint8_t kStereo48k[] = {0x11, 0x90};  // AudioSpecificConfig, ISO/IEC 14496-3
  AVStream* st = avformat_new_stream(oc, nullptr);
  st->time_base = {1, 48000};
  AVCodecParameters& par = *st->codecpar;
  par.codec_type = AVMEDIA_TYPE_AUDIO;
  par.codec_id = AV_CODEC_ID_AAC;
  par.format = AV_SAMPLE_FMT_FLTP;
  par.channels = 2;
  par.channel_layout = AV_CH_LAYOUT_STEREO;
  par.sample_rate = 48000;
  par.frame_size = 1024;
  par.extradata =
      static_cast<uint8_t*>(av_mallocz(sizeof kStereo48k + AV_INPUT_BUFFER_PADDING_SIZE));
  par.extradata_size = sizeof kStereo48k;
  memcpy(par.extradata, kStereo48k, sizeof kStereo48k);
  return st;
}

zeva::FormatContextPtr make_output(const std::string& url, bool open_io) {
  AVFormatContext* oc = nullptr;
  avformat_alloc_output_context2(&oc, nullptr, nullptr, url.c_str());
  if (oc == nullptr) return nullptr;
  add_picture_stream(oc);
  add_sound_stream(oc);
  if (open_io && avio_open(&oc->pb, url.c_str(), AVIO_FLAG_WRITE) < 0) {
    avformat_free_context(oc);
    return nullptr;
  }
  return zeva::FormatContextPtr(oc);
}
