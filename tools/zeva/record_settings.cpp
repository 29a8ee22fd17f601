#include "record_settings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "output_codecs.h"
#include "picture_rate.h"

namespace zeva_tool {
namespace {

constexpr int kGopSeconds = 2;
constexpr int64_t kMinBitrateKbps = 500;
constexpr int64_t kMaxBitrateKbps = 1000000;
constexpr int kStereoKbps = 128;
constexpr int kFurtherChannelKbps = 64;
constexpr int kAverageBitrate = 0;  // MovieInfo::rc_mode
constexpr const char* kUsualProfile = "high";
constexpr const char* kHdrProfile = "high10";
constexpr int kHdrBits = 10;  // with less, there are steps in the sky
constexpr int kUsualCrf = 23;

// Camera pictures look as good as the source at a tenth of a bit per pixel in H.264; the older
// codecs of some containers need twice as much.
int default_bitrate_kbps(const RecordOptions& options, const RecordSettings& settings) {
  const MovieInfo& info = settings.movie;
  int bits_per_10_pixels = main_codecs(options).video.id == AV_CODEC_ID_H264 ? 1 : 2;
  int64_t pixels = static_cast<int64_t>(info.width) * info.height;
  int64_t kbps = av_rescale(pixels * bits_per_10_pixels, settings.rate.num,
                            int64_t{10} * 1000 * settings.rate.den);
  return static_cast<int>(std::clamp(kbps, kMinBitrateKbps, kMaxBitrateKbps));
}

int even(int side) { return std::max(2, side / 2 * 2); }

void set_outputs(const RecordOptions& options, MovieInfo& info) {
  snprintf(info.url, sizeof info.url, "%s", options.output.c_str());
  snprintf(info.moov_url, sizeof info.moov_url, "%s", index_path(options).c_str());
  snprintf(info.meta_info, sizeof info.meta_info, "%s", meta_text(options).c_str());
  for (size_t i = 0; i < options.also.size(); ++i) info.other_urls[i] = options.also[i].c_str();
  info.timeout_sec = options.timeout_s;
}

void set_rate(const RecordOptions& options, const SourceFormat& source, RecordSettings& settings) {
  settings.variable_rate = options.fps.empty() && source.own_times && times_are_free(options);
  settings.rate = source.own_times && !settings.variable_rate ? source.grid_rate : source.rate;
  if (!options.fps.empty()) settings.rate = parse_rate(options.fps, kMaxRecordedRate).value();
  settings.movie.fps = whole_rate(settings.rate);
  int two_seconds = static_cast<int>(std::lround(kGopSeconds * av_q2d(settings.rate)));
  settings.movie.gop_size = options.gop.value_or(std::max(1, two_seconds));
}

void set_pictures(const RecordOptions& options, const SourceFormat& source, MovieInfo& info) {
  auto size = parse_size(options.size);
  info.src_width = source.width;
  info.src_height = source.height;
  info.src_pix_fmt = source.pix_fmt;
  info.width = size ? size->width : even(source.display_width);
  info.height = size ? size->height : even(source.height);
  const Colours& movie = source.movie;
  // 2 means unspecified, which MovieInfo writes as 0 in these two.
  info.color_primaries = movie.primaries == AVCOL_PRI_UNSPECIFIED ? 0 : movie.primaries;
  info.color_trc = movie.transfer == AVCOL_TRC_UNSPECIFIED ? 0 : movie.transfer;
  info.colorspace = movie.matrix;
  info.color_range = movie.range;
}

void add_encoder_options(RecordSettings& settings, const std::string& more) {
  if (more.empty()) return;
  if (!settings.encoder_options.empty()) settings.encoder_options += ":";
  settings.encoder_options += more;
}

void set_rate_control(const RecordOptions& options, RecordSettings& settings) {
  static const std::map<std::string, int> modes{
      {"abr", kAverageBitrate}, {"cbr", 1}, {"vbr", 2}, {"cqp", 3}};
  MovieInfo& info = settings.movie;
  if (options.rate_control == "crf") {
    info.rc_mode = kAverageBitrate;
    info.video_bitrate = 0;  // none
    settings.encoder_options = "crf=" + std::to_string(options.crf.value_or(kUsualCrf));
  } else {
    info.rc_mode = modes.at(options.rate_control);
    info.video_bitrate = options.bitrate_kbps.value_or(default_bitrate_kbps(options, settings));
    info.crf = options.crf.value_or(0);  // 0: a true constant rate, no quality target
  }
  if (options.qp) info.qp = *options.qp;
}

void set_encoder(const RecordOptions& options, const SourceFormat& source,
                 RecordSettings& settings) {
  MovieInfo& info = settings.movie;
  const StreamCodec codec = main_codecs(options).video;
  bool hdr = source.movie.is_hdr();
  std::string profile = options.profile;
  if (profile.empty()) profile = hdr ? kHdrProfile : kUsualProfile;
  int bits = hdr ? std::max(source.component_bits, kHdrBits) : source.component_bits;
  set_rate_control(options, settings);
  if (codec.by_name) settings.video_codec = codec.encoder->name;
  info.pix_fmt = profile_format(*codec.encoder, profile, bits);
  info.preset = preset_from_str(options.preset.c_str());
  info.profile = profile_from_str(profile.c_str());
  info.tune = options.tune == "none" ? kTuneNone : tune_from_str(options.tune.c_str());
  info.hardware = options.hardware;
  add_encoder_options(settings, source.light);
  add_encoder_options(settings, options.x264);
}

void set_stream_pictures(const RecordOptions& options, RecordSettings& settings) {
  constexpr int kKilo = 1000;
  settings.stream_bitrate = options.stream_bitrate_kbps.value_or(0) * kKilo;
  settings.stream_floor = options.stream_floor_kbps.value_or(0) * kKilo;
  settings.stream_size = parse_size(options.stream_size).value_or(PictureSize{});
}

void set_sound(const RecordOptions& options, const SourceFormat& source, RecordSettings& settings) {
  const StreamCodec codec = main_codecs(options).audio;
  MovieInfo& info = settings.movie;
  info.src_sample_rate = info.sample_rate = source.sample_rate;
  info.channels = source.channels;
  info.sample_fmt = AV_SAMPLE_FMT_S16;
  settings.channels = encoded_channels(*codec.encoder, options.output, source.channels);
  int usual_kbps = kStereoKbps + kFurtherChannelKbps * std::max(0, settings.channels - 2);
  info.audio_bitrate = options.audio_bitrate_kbps.value_or(usual_kbps);
  if (codec.by_name) settings.audio_codec = codec.encoder->name;
}

}  // namespace

ZevaOptions RecordSettings::options() const {
  auto text_or_null = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
  ZevaOptions more;
  ZevaOptions_init(&more);
  more.rate_num = rate.num;
  more.rate_den = rate.num > 0 ? rate.den : 0;
  more.variable_rate = variable_rate;
  more.channels = channels;
  more.source_matrix = source_matrix == AVCOL_SPC_UNSPECIFIED ? 0 : source_matrix;
  more.source_range = source_range;
  more.video_codec = text_or_null(video_codec);
  more.audio_codec = text_or_null(audio_codec);
  more.encoder_options = text_or_null(encoder_options);
  more.stream_bitrate = stream_bitrate;
  more.stream_bitrate_floor = stream_floor;
  more.stream_width = stream_size.width;
  more.stream_height = stream_size.height;
  return more;
}

RecordSettings make_settings(const RecordOptions& options, const SourceFormat& source) {
  RecordSettings settings;
  MovieInfo& info = settings.movie;
  set_outputs(options, info);
  info.disable_video = !source.has_pictures;
  info.disable_audio = !source.has_sound;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  if (source.has_pictures) {
    set_rate(options, source, settings);
    set_pictures(options, source, info);
    settings.source_matrix = source.colours.matrix;
    settings.source_range = source.colours.range;
    set_encoder(options, source, settings);
    set_stream_pictures(options, settings);
  }
  if (source.has_sound) set_sound(options, source, settings);
  return settings;
}

}  // namespace zeva_tool
