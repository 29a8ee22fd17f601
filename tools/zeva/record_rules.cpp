#include "record_rules.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "output_url.h"
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
    return Status("--raw " + o.raw + ": not of the form WxH@FPS, such as 1280x720@30");
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
  if (profile_to_str(profile_from_str(o.profile.c_str())) != o.profile) {
    return Status("--profile " + o.profile + ": there is no such profile");
  }
  if (o.tune != "none" && tune_to_str(tune_from_str(o.tune.c_str())) != o.tune) {
    return Status("--tune " + o.tune + ": there is no such tuning");
  }
  return {};
}

Status check_rate_control(const RecordOptions& o) {
  const std::string& rc = o.rate_control;
  if (rc != "abr" && rc != "cbr" && rc != "vbr" && rc != "cqp") {
    return Status("--rc " + rc + ": must be abr, cbr, vbr or cqp");
  }
  if (o.crf && rc != "cbr") return Status("--crf works only with --rc cbr");
  if (o.qp && rc != "cqp") return Status("--qp works only with --rc cqp");
  if (o.bitrate_kbps && rc == "cqp") {
    return Status("--bitrate has no meaning with --rc cqp: the quantiser decides the rate");
  }
  return {};
}

Status check_size(const RecordOptions& o) {
  if (o.size.empty()) return {};
  auto size = parse_size(o.size);
  if (!size) return Status("--size " + o.size + ": not of the form WxH, such as 1280x720");
  if (size->width % 2 || size->height % 2) {
    return Status("--size " + o.size + ": width and height must be even, since colour is encoded " +
                  "for two by two pixels");
  }
  return {};
}

Status check_streams(const RecordOptions& o) {
  if (o.no_video && o.no_audio) return Status("--no-video and --no-audio leave nothing to record");
  if (o.no_video && !o.raw.empty()) return Status("--no-video: --raw brings nothing but pictures");
  if (!wants_video(o) && !wants_audio(o)) {
    return Status("-o " + o.output + ": this kind of output cannot take what the source brings");
  }
  return {};
}

// The library would leave such a stream out without a word.
Status check_encoders(const RecordOptions& o) {
  OutputCodecs codecs = main_codecs(o.output);
  for (auto [codec, wanted, option] : {std::tuple(codecs.video, wants_video(o), "--no-video"),
                                       std::tuple(codecs.audio, wants_audio(o), "--no-audio")}) {
    if (!wanted || avcodec_find_encoder(codec)) continue;
    return Status("-o " + o.output + ": there is no encoder here for the " +
                  avcodec_get_name(codec) + " of this kind of file; choose another kind or " +
                  option);
  }
  return {};
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
  OutputCodecs codecs = main_codecs(o.output);
  for (auto [codec, wanted] :
       {std::pair(codecs.video, wants_video(o)), std::pair(codecs.audio, wants_audio(o))}) {
    if (!wanted || can_hold(container, codec)) continue;
    return Status(argument + ": cannot hold the " + avcodec_get_name(codec) +
                  " of the main output " + o.output + "; make another one the main output");
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
  return !o.no_video && main_codecs(o.output).video != AV_CODEC_ID_NONE;
}

bool wants_audio(const RecordOptions& o) {
  return !o.no_audio && o.raw.empty() && main_codecs(o.output).audio != AV_CODEC_ID_NONE;
}

Status check_record_options(const RecordOptions& options) {
  for (auto check : {check_source, check_names, check_rate_control, check_size, check_session,
                     check_streams, check_encoders, check_further_outputs}) {
    Status status = check(options);
    if (!status.ok()) return status;
  }
  return {};
}

}  // namespace zeva_tool
