#include "stream_setup.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "encoder_options.h"
#include "encoder_presets.h"
#include "h264_profile.h"
#include "hardware_enc.h"
#include "logger.h"
#include "output_url.h"
#include "picture_colours.h"
#include "variable_bit_rate.h"

namespace zeva {
namespace {

enum RateControl { kAverageBitrate = 0, kConstantBitrate = 1, kConstantQuantiser = 3 };

// The units of pictures that keep their own time: those of MPEG's system clock, in which all the
// usual rates are whole.
constexpr AVRational kFineUnits{1, 90000};
// MPEG-4 counts the units of a second in 16 bits (ISO/IEC 14496-2, 6.3.3).
constexpr int kMaxMpeg4Units = 65535;

// `wanted` if the list (ended by `end`) holds it, else the list's first entry.
template <typename T>
T listed_or_first(const T* list, T wanted, T end) {
  for (const T* p = list; *p != end; ++p) {
    if (*p == wanted) return wanted;
  }
  return list[0];
}

// ---- choosing the encoder

// The hardware takes NV12, of which the profiles above "high" are not made.
bool fits_hardware(const MovieInfo& info) {
  return info.profile <= kProfileHigh || info.profile == kProfileNone;
}

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

bool is_hardware(const char* name) {
  return std::any_of(std::begin(kHwEncoders), std::end(kHwEncoders),
                     [name](const HwEncoder& entry) { return strcmp(entry.name, name) == 0; });
}

const AVCodec* choose_encoder(AVCodecID codec_id, MovieInfo& info, const Options& options) {
  const bool is_video = avcodec_get_type(codec_id) == AVMEDIA_TYPE_VIDEO;
  const std::string& name = is_video ? options.video_codec : options.audio_codec;
  if (!name.empty()) {
    if (is_video) info.hardware = is_hardware(name.c_str());
    return avcodec_find_encoder_by_name(name.c_str());
  }
  const AVCodec* codec = nullptr;
  if (codec_id == AV_CODEC_ID_H264 && info.hardware && fits_hardware(info)) {
    codec = hardware_encoder(info);
  } else if (is_video) {
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

// Entries of the list of MPEG-1's encoder that the standard has (ISO/IEC 11172-2, 2.4.3.2); the
// encoder refuses the others.
constexpr ptrdiff_t kMpeg1Rates = 8;

AVRational nearest_rate(AVRational wanted, const AVCodec& codec) {
  const AVRational* const list = codec.supported_framerates;
  if (codec.id == AV_CODEC_ID_MPEG1VIDEO && list != nullptr) {
    return *std::min_element(list, list + kMpeg1Rates, [wanted](AVRational a, AVRational b) {
      return av_nearer_q(wanted, a, b) > 0;
    });
  }
  if (list != nullptr) return list[av_find_nearest_q_idx(wanted, list)];
  AVRational rate = wanted;
  if (codec.id == AV_CODEC_ID_MPEG4) {
    av_reduce(&rate.num, &rate.den, wanted.num, wanted.den, kMaxMpeg4Units);
  }
  return rate;
}

// Without options the time base is 1/fps, also where `fps` has become the numerator of a fraction:
// hosts count on it.
AVRational listed_rate(int fps, const AVCodec& codec) {
  const AVRational wanted{fps, 1};
  if (codec.supported_framerates == nullptr) return wanted;
  return codec.supported_framerates[av_find_nearest_q_idx(wanted, codec.supported_framerates)];
}

PictureTiming set_frame_rate(AVCodecContext* enc, const AVCodec& codec, MovieInfo& info,
                             const Options& options) {
  const bool fraction = options.has_rate() || options.variable_rate;
  const AVRational wanted =
      options.has_rate() ? AVRational{options.rate_num, options.rate_den} : AVRational{info.fps, 1};
  const AVRational rate = fraction ? nearest_rate(wanted, codec) : listed_rate(info.fps, codec);
  const int fps = fraction ? nearest_fps(rate) : rate.num;
  if (fps != info.fps) {
    ZEVA_LOG(kLogError, "-->reset fps: %d --> %d", info.fps, fps);
    info.fps = fps;
  }
  PictureTiming timing;
  timing.interval = fraction ? av_inv_q(rate) : AVRational{1, info.fps};
  timing.variable = options.variable_rate;
  timing.counted = timing.variable && codec.id != AV_CODEC_ID_H264;
  timing.units = timing.variable ? kFineUnits : timing.interval;
  enc->framerate = rate;
  enc->time_base = timing.variable && !timing.counted ? kFineUnits : timing.interval;
  return timing;
}

PictureTiming set_up_video(AVCodecContext* enc, const AVCodec& codec, MovieInfo& info,
                           const Options& options, bool bounded) {
  if (strcmp(codec.name, "h264_mf") == 0) av_opt_set_int(enc->priv_data, "hw_encoding", 1, 0);
  // A picture that is asked to be a key picture begins a stream: nothing after it may refer to one
  // before it. Encoders spell the option either way.
  for (const char* name : {"forced-idr", "forced_idr"}) av_opt_set_int(enc->priv_data, name, 1, 0);
  const int64_t bitrate = effective_bitrate(codec, info);
  set_rate_control(enc, bitrate, info);
  if (bounded && info.rc_mode != kConstantQuantiser) bound_bit_rate(*enc, bitrate);
  enc->width = info.width;
  enc->height = info.height;
  request_colours(*enc, info);
  const PictureTiming timing = set_frame_rate(enc, codec, info, options);
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
  return timing;
}

// The host's options come after all other settings; only the pixel format and the colours follow
// from them.
std::string apply_video_options(AVCodecContext* enc, MovieInfo& info, const Options& options) {
  if (!takes_profile(*enc, info.profile)) {
    return std::string("profile '") + profile_to_str(info.profile) + "': " + enc->codec->name +
           " does not know it";
  }
  std::string fault = apply_encoder_options(*enc, options.encoder_options);
  if (!fault.empty()) return fault;
  enc->pix_fmt = format_for_profile(*enc, enc->pix_fmt);
  if (enc->pix_fmt == AV_PIX_FMT_NONE) {
    return std::string("profile: ") + enc->codec->name + " has no pixel format of it";
  }
  info.pix_fmt = enc->pix_fmt;
  return settle_colours(*enc, info, options);
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
  // FLV tells the rate of AAC in its configuration, and of other sound knows few (Adobe FLV 10.1).
  if (flv && codec.id != AV_CODEC_ID_AAC) return codec.supported_samplerates[0];
  return listed_or_first(codec.supported_samplerates, static_cast<int>(info.sample_rate), 0);
}

// The layout of that many channels that the encoder takes; 0 for none.
uint64_t layout_of(int channels, const AVCodec& codec) {
  const auto usual = static_cast<uint64_t>(av_get_default_channel_layout(channels));
  if (codec.channel_layouts == nullptr) return usual;
  uint64_t other = 0;
  for (const uint64_t* p = codec.channel_layouts; *p != 0; ++p) {
    if (*p == usual) return usual;
    if (other == 0 && av_get_channel_layout_nb_channels(*p) == channels) other = *p;
  }
  return other;
}

std::string channels_fault(const AVCodec& codec, int channels) {
  return "channels " + std::to_string(channels) + ": " + codec.name + " does not take that many";
}

uint64_t stereo_or_first(const AVCodec& codec) {
  constexpr uint64_t kStereo = AV_CH_LAYOUT_STEREO;
  if (codec.channel_layouts == nullptr) return kStereo;
  return listed_or_first(codec.channel_layouts, kStereo, uint64_t{0});
}

std::string set_up_audio(AVCodecContext* enc, const AVCodec& codec, MovieInfo& info,
                         const Options& options) {
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
  enc->channel_layout =
      options.channels != 0 ? layout_of(options.channels, codec) : stereo_or_first(codec);
  if (enc->channel_layout == 0) return channels_fault(codec, options.channels);
  err_print(stderr, "layout = %lld\n", static_cast<long long>(enc->channel_layout));
  enc->channels = av_get_channel_layout_nb_channels(enc->channel_layout);
  enc->time_base = {1, enc->sample_rate};
  if (enc->frame_size == 0) enc->frame_size = 1024;
  return {};
}

// All outputs get the same packets. A muxer that does not need the parameter sets outside of them
// puts them back in front of key frames.
bool wants_global_header(const AVOutputFormat& main, const MovieInfo& info) {
  if ((main.flags & AVFMT_GLOBALHEADER) != 0) return true;
  const auto* const end =
      std::find(std::begin(info.other_urls), std::end(info.other_urls), nullptr);
  return std::any_of(std::begin(info.other_urls), end, [](const char* url) {
    return (guess_output_format(url)->flags & AVFMT_GLOBALHEADER) != 0;
  });
}

}  // namespace

int nearest_fps(AVRational rate) {
  return static_cast<int>(std::max<int64_t>(av_rescale(rate.num, 1, rate.den), 1));
}

NewStream add_stream(AVFormatContext* oc, AVCodecID codec_id, MovieInfo& info,
                     const Options& options, bool bounded) {
  const AVCodec* codec = choose_encoder(codec_id, info, options);
  if (codec == nullptr) return {};
  AVStream* stream = avformat_new_stream(oc, nullptr);
  if (stream == nullptr) {
    ZEVA_LOG(kLogError, "Could not allocate stream");
    return {};
  }
  stream->id = static_cast<int>(oc->nb_streams) - 1;
  NewStream added{stream, CodecContextPtr(avcodec_alloc_context3(codec)), {}, {}, {}};
  if (!added.encoder) return {};
  AVCodecContext* const enc = added.encoder.get();
  if (codec->type == AVMEDIA_TYPE_VIDEO) {
    added.timing = set_up_video(enc, *codec, info, options, bounded);
  } else {
    added.fault = set_up_audio(enc, *codec, info, options);
    added.timing.units = enc->time_base;
  }
  stream->time_base = added.timing.units;
  apply_preset_options(enc, info.preset, info.profile, info.tune);
  if (codec->type == AVMEDIA_TYPE_VIDEO) {
    added.fault = apply_video_options(enc, info, options);
    added.host = host_pictures(info, options);
  }
  if (wants_global_header(*oc->oformat, info)) enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  return added;
}

}  // namespace zeva
