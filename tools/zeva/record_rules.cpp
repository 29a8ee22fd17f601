#include "record_rules.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

#include "output_codecs.h"
#include "output_url.h"
#include "picture_rate.h"
#include "session_rules.h"
#include "zeva/movie_info.h"

namespace zeva_tool {
namespace {

constexpr SessionLimits kLimits{3, sizeof(MovieInfo::url) - 1, sizeof(MovieInfo::moov_url) - 1,
                                sizeof(MovieInfo::meta_info) - 1};

Status check_source(const RecordOptions& o) {
  int sources = !o.input.empty() + o.pattern + !o.raw.empty();
  if (sources != 1) return Status("exactly one of --input, --pattern and --raw must be given");
  if (!o.raw.empty() && !parse_raw(o.raw)) {
    return Status("--raw " + o.raw + ": not of the form WxH@RATE, such as 1280x720@30");
  }
  if (!o.fps.empty() && !parse_rate(o.fps, kMaxRecordedRate)) {
    return Status("--fps " + o.fps + ": not a rate up to " + std::to_string(kMaxRecordedRate) +
                  ", such as 25, 29.97 or 30000/1001");
  }
  if (o.loop && o.input.empty()) return Status("--loop starts a file over: it needs --input");
  return {};
}

// The library takes unknown names for those of a live recording, so a name is good only if the
// library gives it back.
Status check_names(const RecordOptions& o) {
  if (preset_to_str(preset_from_str(o.preset.c_str())) != o.preset) {
    return Status("--preset " + o.preset + ": there is no such preset");
  }
  if (!o.profile.empty() && profile_to_str(profile_from_str(o.profile.c_str())) != o.profile) {
    return Status("--profile " + o.profile + ": there is no such profile");
  }
  if (o.tune != "none" && tune_to_str(tune_from_str(o.tune.c_str())) != o.tune) {
    return Status("--tune " + o.tune + ": there is no such tuning");
  }
  return {};
}

Status check_rate_control(const RecordOptions& o) {
  const std::string& rc = o.rate_control;
  if (rc != "abr" && rc != "cbr" && rc != "vbr" && rc != "cqp" && rc != "crf") {
    return Status("--rc " + rc + ": must be abr, cbr, vbr, cqp or crf");
  }
  if (o.crf && rc != "cbr" && rc != "crf") {
    return Status("--crf works only with --rc crf (constant quality) or --rc cbr");
  }
  if (o.qp && rc != "cqp") return Status("--qp works only with --rc cqp");
  if (o.bitrate_kbps && (rc == "cqp" || rc == "crf")) {
    return Status("--bitrate has no meaning with --rc " + rc + ": the " +
                  (rc == "cqp" ? "quantiser" : "quality") + " decides the rate");
  }
  return {};
}

// Names and settings of the pictures' encoder that the encoder does not have.
Status check_video_encoder(const RecordOptions& o) {
  if (!wants_video(o)) {
    if (!o.video_codec.empty()) return Status("--vcodec: no pictures are recorded");
    return o.x264.empty() ? Status() : Status("--x264: no pictures are recorded");
  }
  const StreamCodec codec = main_codecs(o).video;
  const std::string is = std::string(", and the pictures become ") + avcodec_get_name(codec.id);
  if (!o.x264.empty() && !is_x264(codec)) return Status("--x264 sets the encoder libx264" + is);
  if (!o.x264.empty() && o.hardware) {
    return Status("--x264 sets the encoder libx264, and --hardware looks for another");
  }
  if (o.rate_control == "crf" && (!is_x264(codec) || o.hardware)) {
    return Status("--rc crf is known to the encoder libx264" +
                  (o.hardware ? ", not to --hardware" : is));
  }
  return {};
}

Status check_profile(const RecordOptions& o) {
  if (o.profile.empty() || !wants_video(o)) return {};
  const StreamCodec codec = main_codecs(o).video;
  const std::string argument = "--profile " + o.profile;
  if (codec.id != AV_CODEC_ID_H264) {
    return Status(argument + ": the profiles are those of H.264, and the pictures become " +
                  avcodec_get_name(codec.id));
  }
  if (!needs_depth(o.profile)) return {};
  if (o.hardware || !is_x264(codec)) {
    return Status(argument + " needs the encoder libx264; hardware encodes up to the profile high");
  }
  for (int bits : {8, 10}) {
    if (profile_format(*codec.encoder, o.profile, bits) != AV_PIX_FMT_NONE) continue;
    return Status(argument + ": the encoder libx264 was built without such pictures here");
  }
  return {};
}

Status check_one_size(const std::string& argument, const std::string& given) {
  if (given.empty()) return {};
  auto size = parse_size(given);
  if (!size) return Status(argument + " " + given + ": not of the form WxH, such as 1280x720");
  if (size->width % 2 || size->height % 2) {
    return Status(argument + " " + given + ": width and height must be even, since colour is " +
                  "encoded for two by two pixels");
  }
  return {};
}

Status check_size(const RecordOptions& o) {
  Status status = check_one_size("--size", o.size);
  return status.ok() ? check_one_size("--stream-size", o.stream_size) : status;
}

Status check_streams(const RecordOptions& o) {
  if (o.no_video && o.no_audio) return Status("--no-video and --no-audio leave nothing to record");
  if (o.no_video && !o.raw.empty()) return Status("--no-video: --raw brings nothing but pictures");
  if (!wants_video(o) && !wants_audio(o)) {
    return Status("-o " + o.output + ": this kind of output cannot take what the source brings");
  }
  return {};
}

Status check_encoder(const RecordOptions& o, const StreamCodec& codec, const std::string& name,
                     const char* option, const char* without) {
  std::string codec_name = avcodec_get_name(codec.id);
  if (!codec.encoder && !name.empty()) {
    return Status(std::string(option) + " " + name + ": there is no such encoder here");
  }
  if (!codec.encoder) {
    return Status("-o " + o.output + ": there is no encoder here for the " + codec_name +
                  " of this kind of file; choose another kind, " + option + " or " + without);
  }
  bool stream = has_scheme(o.output, "rtsp");
  if (name.empty() || stream || can_hold(main_container(o.output), codec.id)) return {};
  return Status(std::string(option) + " " + name + ": -o " + o.output + " cannot hold " +
                codec_name);
}

// The library would leave such a stream out without a word.
Status check_encoders(const RecordOptions& o) {
  const OutputCodecs codecs = main_codecs(o);
  Status status;
  if (wants_video(o)) {
    status = check_encoder(o, codecs.video, o.video_codec, "--vcodec", "--no-video");
  }
  if (!status.ok()) return status;
  if (!wants_audio(o)) {
    return o.audio_codec.empty() ? Status() : Status("--acodec: no sound is recorded");
  }
  return check_encoder(o, codecs.audio, o.audio_codec, "--acodec", "--no-audio");
}

// A further output receives the packets of the main one.
Status check_further_output(const RecordOptions& o, const std::string& url) {
  std::string argument = "--also " + url;
  bool same_kind = has_scheme(url, "rtsp") && has_scheme(o.output, "rtsp");
  if (same_kind) return {};
  if (has_scheme(url, "rtsp")) {
    return Status(argument + ": an rtsp:// URL must be the main output (-o), since its sound is " +
                  "Opus; `zeva mux` sends encoded packets to files and to rtsp:// at once");
  }
  AVOutputFormat* container = further_container(url);
  if (!container) return Status(argument + ": no container goes by this ending");
  OutputCodecs codecs = main_codecs(o);
  for (auto [codec, wanted, option] : {std::tuple(codecs.video.id, wants_video(o), "--vcodec"),
                                       std::tuple(codecs.audio.id, wants_audio(o), "--acodec")}) {
    if (!wanted || can_hold(container, codec)) continue;
    return Status(argument + ": cannot hold the " + avcodec_get_name(codec) +
                  " of the main output " + o.output + "; choose another with " + option +
                  ", or make another one the main output");
  }
  return {};
}

Status check_further_outputs(const RecordOptions& o) {
  for (const std::string& url : o.also) {
    Status status = check_further_output(o, url);
    if (!status.ok()) return status;
  }
  return {};
}

Status check_session(const RecordOptions& o) {
  return check_session_options(o, kLimits, {{"--input", o.input}});
}

}  // namespace

bool wants_video(const RecordOptions& o) {
  return !o.no_video && main_codecs(o).video.id != AV_CODEC_ID_NONE;
}

bool wants_audio(const RecordOptions& o) {
  return !o.no_audio && o.raw.empty() && main_codecs(o).audio.id != AV_CODEC_ID_NONE;
}

Status check_record_options(const RecordOptions& options) {
  for (auto check :
       {check_source, check_names, check_rate_control, check_size, check_session, check_streams,
        check_encoders, check_video_encoder, check_profile, check_further_outputs}) {
    Status status = check(options);
    if (!status.ok()) return status;
  }
  return {};
}

}  // namespace zeva_tool
