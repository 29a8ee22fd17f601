#include "mux_rules.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "output_url.h"
#include "picture_rate.h"
#include "session_rules.h"
#include "zeva/packet.h"

namespace zeva_tool {
namespace {

constexpr SessionLimits kLimits{std::size(decltype(MovieInfo2::others){}),
                                sizeof(MovieInfo2::url) - 1, sizeof(MovieInfo2::moov) - 1,
                                sizeof(MovieInfo2::meta) - 1};

Status check_source(const MuxOptions& o) {
  bool streams = !o.video.empty() || !o.audio.empty() || o.pcm;
  if (o.input.empty() != streams) {
    return Status("either --input, or --video, --audio or --pcm must be given");
  }
  if (o.pcm && !o.audio.empty()) return Status("--audio and --pcm: there can be only one sound");
  if (!o.fps.empty() && o.video.empty()) return Status("--fps is the rate of --video: it needs it");
  if (!o.fps.empty() && !parse_rate(o.fps, kMaxStreamRate)) {
    return Status("--fps " + o.fps + ": not a rate, such as 25, 29.97 or 30000/1001");
  }
  if ((o.no_video || o.no_audio) && o.input.empty()) {
    return Status("--no-video and --no-audio take a part of an --input, and there is none");
  }
  if (o.no_video && o.no_audio) return Status("--no-video and --no-audio leave nothing to record");
  return {};
}

Status check_pcm(const MuxOptions& o) {
  if (!o.pcm) return {};
  const PcmFormat& pcm = o.pcm_format;
  if (pcm.sample_format != "s16" && pcm.sample_format != "flt32") {
    return Status("--pcm-format " + pcm.sample_format + ": must be s16 or flt32");
  }
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
  const int* rates = encoder ? encoder->supported_samplerates : nullptr;
  while (rates && *rates && *rates != pcm.sample_rate) ++rates;
  if (rates && !*rates) {
    return Status("--pcm-rate " + std::to_string(pcm.sample_rate) + ": AAC has no such rate");
  }
  return {};
}

Status check_session(const MuxOptions& o) {
  return check_session_options(o, kLimits,
                               {{"--input", o.input}, {"--video", o.video}, {"--audio", o.audio}});
}

}  // namespace

Status check_mux_options(const MuxOptions& options) {
  for (auto check : {check_source, check_pcm, check_session}) {
    Status status = check(options);
    if (!status.ok()) return status;
  }
  return {};
}

Status check_containers(const MuxOptions& options, bool has_pictures, bool has_sound) {
  for (const std::string& url : output_urls(options)) {
    AVOutputFormat* container = main_container(url);
    bool rtsp = has_scheme(url, "rtsp");
    std::string argument = (url == options.output ? "-o " : "--also ") + url;
    if (!container) return Status(argument + ": there is no such kind of output here");
    if (rtsp) continue;  // its sound becomes Opus
    for (auto [codec, there] :
         {std::pair(AV_CODEC_ID_H264, has_pictures), std::pair(AV_CODEC_ID_AAC, has_sound)}) {
      if (!there || can_hold(container, codec)) continue;
      return Status(argument + ": this kind of output cannot hold " +
                    (codec == AV_CODEC_ID_H264 ? "H.264 pictures" : "AAC sound"));
    }
  }
  return {};
}

}  // namespace zeva_tool
