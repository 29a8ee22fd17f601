#include "stream_setup.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "encoder_presets.h"
#include "hardware_enc.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

enum RateControl { kAverageBitrate = 0, kConstantBitrate = 1, kConstantQuantiser = 3 };

constexpr int kUnspecifiedColorspace = 2;

// `wanted` if the list (ended by `end`) holds it, else the list's first entry.
template <typename T>
T listed_or_first(const T* list, T wanted, T end) {
  for (const T* p = list; *p != end; ++p) {
    if (*p == wanted) return wanted;
  }
  return list[0];
}

// ---- choosing the encoder

const AVCodec* hardware_encoder(MovieInfo& info) {
  const AVCodec* codec = nullptr;
  for (const HwEncoder& entry : kHwEncoders) {
    if (!probe_hw_encoder(&entry, info.width, info.height, AV_PIX_FMT_NV12)) continue;
    codec = avcodec_find_encoder_by_name(entry.name);
    if (info.pix_fmt != AV_PIX_FMT_NV12) {
      info.pix_fmt = AV_PIX_FMT_NV12;
      ZEVA_LOG(kLogError, "*** hardware force pix-fmt: nv12");
    }
    break;
  }
  info.hardware = codec != nullptr;
  return codec;
}

const AVCodec* choose_encoder(AVCodecID codec_id, MovieInfo& info) {
  const AVCodec* codec = nullptr;
  if (codec_id == AV_CODEC_ID_H264 && info.hardware) {
    codec = hardware_encoder(info);
  } else if (avcodec_get_type(codec_id) == AVMEDIA_TYPE_VIDEO) {
    info.hardware = false;
  }
  if (codec_id == AV_CODEC_ID_MP3) {
    codec = avcodec_find_encoder_by_name("libmp3lame");
    ZEVA_LOG(kLogError, "win,mp3, find codec: 'libmp3lame': %s",
             codec != nullptr ? "ok" : "failed");
  }
  if (codec == nullptr) codec = avcodec_find_encoder(codec_id);
  if (codec == nullptr) {
    ZEVA_LOG(kLogError, "Could not find encoder for '%s'", avcodec_get_name(codec_id));
  }
  return codec;
}

// ---- video

void set_number_option(AVCodecContext* enc, const char* name, int value) {
  av_opt_set(enc->priv_data, name, std::to_string(value).c_str(), AV_OPT_SEARCH_CHILDREN);
}

bool is_quality(int value) { return value >= 1 && value <= 51; }

int64_t effective_bitrate(const AVCodec& codec, MovieInfo& info) {
  int64_t bitrate = int64_t{info.video_bitrate} * 1000;
  if (bitrate != 0) return bitrate;
  if (codec.id == AV_CODEC_ID_H264 && info.hardware) {
    if (info.rc_mode != kConstantQuantiser) {
      info.rc_mode = kConstantQuantiser;
      ZEVA_LOG(kLogDebug, "[auto] zero bitrate, CQP enable, qp=%d", info.qp);
    }
  } else if (codec.id != AV_CODEC_ID_H264) {
    bitrate =
        static_cast<int64_t>(static_cast<double>(info.fps) * info.height * info.width * 32 * 0.003);
    ZEVA_LOG(kLogDebug, "[auto] zero bitrate, force bitrate=%d kBps",
             static_cast<int>(bitrate / 1024));
  }
  return bitrate;
}

void set_rate_control(AVCodecContext* enc, int64_t bitrate, const MovieInfo& info) {
  switch (info.rc_mode) {
    case kAverageBitrate:
      err_print(stderr, "ABR\n");
      enc->bit_rate = bitrate;
      break;
    case kConstantBitrate:
      err_print(stderr, "CBR\n");
      enc->bit_rate = enc->rc_max_rate = enc->rc_min_rate = bitrate;
      enc->bit_rate_tolerance = enc->rc_buffer_size = static_cast<int>(bitrate);
      enc->rc_initial_buffer_occupancy = static_cast<int>(bitrate * 3 / 4);
      if (is_quality(info.crf)) {
        err_print(stderr, "CBR,  crf=%d\n", info.crf);
        set_number_option(enc, "crf", info.crf);
      }
      break;
    case kConstantQuantiser:
      err_print(stderr, "CQP\n");
      if (is_quality(info.qp)) {
        err_print(stderr, "CQP,  qp=%d\n", info.qp);
        set_number_option(enc, "qp", info.qp);
      }
      break;
    default: {
      err_print(stderr, "VBR\n");
      const int64_t kbit = bitrate / 1000;
      enc->rc_min_rate = std::max<int64_t>(kbit - 200, 10) * 1000;
      enc->flags |= AV_CODEC_FLAG_QSCALE;
      enc->rc_max_rate = kbit * 1000 + 10000;
      enc->bit_rate = kbit * 1000;
    }
  }
}

void set_colours(AVCodecContext* enc, const MovieInfo& info) {
  if (info.color_primaries != 0) {
    enc->color_primaries = static_cast<AVColorPrimaries>(info.color_primaries);
  }
  if (info.color_trc != 0) {
    enc->color_trc = static_cast<AVColorTransferCharacteristic>(info.color_trc);
  }
  if (info.color_range != 0) enc->color_range = static_cast<AVColorRange>(info.color_range);
  if (info.colorspace != kUnspecifiedColorspace) {
    enc->colorspace = static_cast<AVColorSpace>(info.colorspace);
  }
}

void set_frame_rate(AVCodecContext* enc, const AVCodec& codec, AVStream* st, MovieInfo& info) {
  AVRational rate{info.fps, 1};
  if (codec.supported_framerates != nullptr) {
    rate = codec.supported_framerates[av_find_nearest_q_idx(rate, codec.supported_framerates)];
    if (rate.num != info.fps) {
      ZEVA_LOG(kLogError, "-->reset fps: %d --> %d", info.fps, rate.num);
      info.fps = rate.num;
    }
  }
  enc->framerate = rate;
  enc->time_base = st->time_base = {1, info.fps};
}

void set_up_video(AVCodecContext* enc, const AVCodec& codec, AVStream* st, MovieInfo& info) {
  if (strcmp(codec.name, "h264_mf") == 0) av_opt_set_int(enc->priv_data, "hw_encoding", 1, 0);
  const int64_t bitrate = effective_bitrate(codec, info);
  set_rate_control(enc, bitrate, info);
  enc->width = info.width;
  enc->height = info.height;
  set_colours(enc, info);
  set_frame_rate(enc, codec, st, info);
  enc->gop_size = info.gop_size;
  if (codec.pix_fmts != nullptr) {
    info.pix_fmt =
        listed_or_first(codec.pix_fmts, static_cast<AVPixelFormat>(info.pix_fmt), AV_PIX_FMT_NONE);
  }
  enc->pix_fmt = static_cast<AVPixelFormat>(info.pix_fmt);
  enc->max_b_frames = codec.id == AV_CODEC_ID_MPEG2VIDEO ? 2 : 0;
  if (codec.id == AV_CODEC_ID_MPEG1VIDEO) enc->mb_decision = 2;
  // All processors, where the encoder knows how to use them.
  if ((codec.capabilities & AV_CODEC_CAP_AUTO_THREADS) != 0) enc->thread_count = 0;
}

// ---- audio

int choose_sample_rate(const AVCodec& codec, const MovieInfo& info) {
  const bool flv = ends_with_nocase(info.url, ".flv");
  if (codec.supported_samplerates == nullptr) {
    if (flv) {
      ZEVA_LOG(kLogError, "--> codec('%s') supported_samplerates is null array.", codec.name);
    }
    return info.sample_rate;
  }
  if (flv) return codec.supported_samplerates[0];
  return listed_or_first(codec.supported_samplerates, static_cast<int>(info.sample_rate), 0);
}

void set_up_audio(AVCodecContext* enc, const AVCodec& codec, AVStream* st, MovieInfo& info) {
  const auto wanted = static_cast<AVSampleFormat>(info.sample_fmt);
  enc->sample_fmt = codec.sample_fmts != nullptr
                        ? listed_or_first(codec.sample_fmts, wanted, AV_SAMPLE_FMT_NONE)
                        : wanted;
  enc->bit_rate = int64_t{info.audio_bitrate} * 1000;
  enc->sample_rate = choose_sample_rate(codec, info);
  if (enc->sample_rate != info.sample_rate) {
    ZEVA_LOG(kLogError, "-->reset sample_rate_dst: %d --> %d", info.sample_rate, enc->sample_rate);
    info.sample_rate = enc->sample_rate;
  }
  constexpr uint64_t kStereo = AV_CH_LAYOUT_STEREO;
  enc->channel_layout = codec.channel_layouts != nullptr
                            ? listed_or_first(codec.channel_layouts, kStereo, uint64_t{0})
                            : kStereo;
  err_print(stderr, "layout = %lld\n", static_cast<long long>(enc->channel_layout));
  enc->channels = av_get_channel_layout_nb_channels(enc->channel_layout);
  enc->time_base = st->time_base = {1, enc->sample_rate};
  if (enc->frame_size == 0) enc->frame_size = 1024;
}

}  // namespace

NewStream add_stream(AVFormatContext* oc, AVCodecID codec_id, MovieInfo& info) {
  const AVCodec* codec = choose_encoder(codec_id, info);
  if (codec == nullptr) return {};
  AVStream* stream = avformat_new_stream(oc, nullptr);
  if (stream == nullptr) {
    ZEVA_LOG(kLogError, "Could not allocate stream");
    return {};
  }
  stream->id = static_cast<int>(oc->nb_streams) - 1;
  CodecContextPtr enc(avcodec_alloc_context3(codec));
  if (!enc) return {};
  if (codec->type == AVMEDIA_TYPE_VIDEO) {
    set_up_video(enc.get(), *codec, stream, info);
  } else if (codec->type == AVMEDIA_TYPE_AUDIO) {
    set_up_audio(enc.get(), *codec, stream, info);
  }
  if ((oc->oformat->flags & AVFMT_GLOBALHEADER) != 0) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  apply_preset_options(enc.get(), info.preset, info.profile, info.tune);
  return {stream, std::move(enc)};
}

}  // namespace zeva
