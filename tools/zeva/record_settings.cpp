#include "record_settings.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "output_url.h"
#include "record_rules.h"

namespace zeva_tool {
namespace {

constexpr int kGopSeconds = 2;
constexpr int64_t kMinBitrateKbps = 500;

// Camera pictures look as good as the source at a tenth of a bit per pixel in H.264; the older
// codecs of some containers need twice as much.
int default_bitrate_kbps(const RecordOptions& options, const MovieInfo& info) {
  int64_t bits_per_10_pixels = main_codecs(options.output).video == AV_CODEC_ID_H264 ? 1 : 2;
  int64_t pixels_per_second = static_cast<int64_t>(info.width) * info.height * info.fps;
  int64_t kbps = pixels_per_second * bits_per_10_pixels / 10 / 1000;
  return static_cast<int>(std::clamp<int64_t>(kbps, kMinBitrateKbps, 1000000));
}

int even(int side) { return std::max(2, side / 2 * 2); }

void set_outputs(const RecordOptions& options, MovieInfo& info) {
  snprintf(info.url, sizeof info.url, "%s", options.output.c_str());
  snprintf(info.moov_url, sizeof info.moov_url, "%s", index_path(options).c_str());
  snprintf(info.meta_info, sizeof info.meta_info, "%s", meta_text(options).c_str());
  for (size_t i = 0; i < options.also.size(); ++i) info.other_urls[i] = options.also[i].c_str();
  info.timeout_sec = options.timeout_s;
}

void set_pictures(const RecordOptions& options, const SourceFormat& source, MovieInfo& info) {
  auto size = parse_size(options.size);
  info.src_width = source.width;
  info.src_height = source.height;
  info.src_pix_fmt = source.pix_fmt;
  info.width = size ? size->width : even(source.display_width);
  info.height = size ? size->height : even(source.height);
  info.pix_fmt = AV_PIX_FMT_YUV420P;
  info.fps = options.fps.value_or(source.fps);
  info.gop_size = options.gop.value_or(kGopSeconds * info.fps);
  // 2 means unspecified, which MovieInfo writes as 0 in these two.
  info.color_primaries =
      source.color_primaries == AVCOL_PRI_UNSPECIFIED ? 0 : source.color_primaries;
  info.color_trc = source.color_trc == AVCOL_TRC_UNSPECIFIED ? 0 : source.color_trc;
  info.colorspace = source.colorspace;
}

void set_encoder(const RecordOptions& options, MovieInfo& info) {
  static const std::map<std::string, int> modes{{"abr", 0}, {"cbr", 1}, {"vbr", 2}, {"cqp", 3}};
  info.rc_mode = modes.at(options.rate_control);
  info.video_bitrate = options.bitrate_kbps.value_or(default_bitrate_kbps(options, info));
  info.crf = options.crf.value_or(0);  // 0: a true constant rate, no quality target
  if (options.qp) info.qp = *options.qp;
  info.preset = preset_from_str(options.preset.c_str());
  info.profile = profile_from_str(options.profile.c_str());
  info.tune = options.tune == "none" ? kTuneNone : tune_from_str(options.tune.c_str());
  info.hardware = options.hardware;
}

void set_sound(const RecordOptions& options, const SourceFormat& source, MovieInfo& info) {
  info.src_sample_rate = info.sample_rate = source.sample_rate;
  info.channels = source.channels;
  info.sample_fmt = AV_SAMPLE_FMT_S16;
  info.audio_bitrate = options.audio_bitrate_kbps;
}

}  // namespace

MovieInfo make_settings(const RecordOptions& options, const SourceFormat& source) {
  MovieInfo info{};
  set_outputs(options, info);
  info.disable_video = !source.has_pictures;
  info.disable_audio = !source.has_sound;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  if (source.has_pictures) {
    set_pictures(options, source, info);
    set_encoder(options, info);
  }
  if (source.has_sound) set_sound(options, source, info);
  return info;
}

}  // namespace zeva_tool
