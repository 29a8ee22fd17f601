#include "record_rules.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "output_url.h"
#include "terminal.h"
#include "zeva/movie_info.h"

namespace zeva_tool {
namespace {

constexpr size_t kMaxFurtherOutputs = 3;
constexpr size_t kMaxUrlBytes = sizeof(MovieInfo::url) - 1;
constexpr size_t kMaxIndexBytes = sizeof(MovieInfo::moov_url) - 1;
constexpr size_t kMaxMetaBytes = sizeof(MovieInfo::meta_info) - 1;

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

Status check_meta(const RecordOptions& o) {
  for (const std::string& item : o.meta) {
    size_t colon = item.find(':');
    if (colon == std::string::npos || colon == 0) {
      return Status("--meta " + item + ": not of the form key:value");
    }
    if (item.find(';') != std::string::npos) {
      return Status("--meta " + item + ": must not contain ';', which separates the items");
    }
  }
  if (meta_text(o).size() > kMaxMetaBytes) {
    return Status("--meta: all items together must not be longer than " +
                  std::to_string(kMaxMetaBytes) + " bytes");
  }
  return {};
}

Status check_urls(const RecordOptions& o) {
  if (o.also.size() > kMaxFurtherOutputs) {
    return Status("--also: at most three further outputs are possible");
  }
  for (const std::string& url : output_urls(o)) {
    const char* argument = &url == &o.output ? "-o" : "an output";
    if (url.empty()) return Status(std::string(argument) + ": the URL is empty");
    if (url.size() > kMaxUrlBytes) {
      return Status("output " + url.substr(0, 40) + "...: the URL is longer than " +
                    std::to_string(kMaxUrlBytes) + " bytes");
    }
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

bool can_hold(AVOutputFormat* container, AVCodecID codec) {
  int answer = avformat_query_codec(container, codec, FF_COMPLIANCE_NORMAL);
  if (answer != AVERROR_PATCHWELCOME) return answer > 0;
  // The container does not know; what matters then is whether it takes this kind of stream at all.
  bool video = avcodec_get_type(codec) == AVMEDIA_TYPE_VIDEO;
  return (video ? container->video_codec : container->audio_codec) != AV_CODEC_ID_NONE;
}

// A further output receives the packets of the main one.
Status check_further_output(const RecordOptions& o, const std::string& url) {
  std::string argument = "--also " + url;
  bool same_kind = has_scheme(url, "rtsp") && has_scheme(o.output, "rtsp");
  if (same_kind) return {};
  if (has_scheme(url, "rtsp")) {
    return Status(argument + ": an rtsp:// URL must be the main output (-o)");
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

Status check_index(const RecordOptions& o) {
  if (o.no_index && !o.index.empty()) return Status("--index and --no-index contradict each other");
  if (o.no_index && o.keep_index)
    return Status("--keep-index and --no-index contradict each other");
  auto urls = output_urls(o);
  auto mp4_count = std::count_if(urls.begin(), urls.end(),
                                 [](const std::string& url) { return has_ending(url, ".mp4"); });
  if (mp4_count == 0 && !o.index.empty()) {
    return Status("--index: only an .mp4 output has an index, and there is none");
  }
  if (mp4_count > 1 && !o.no_index) {
    return Status("--also: two .mp4 outputs would write one index, which would be useless: add " +
                  std::string("--no-index or choose another container for one of them"));
  }
  if (index_path(o).size() > kMaxIndexBytes) {
    return Status("--index: the path is longer than " + std::to_string(kMaxIndexBytes) + " bytes");
  }
  return {};
}

// Everything the recording reads or writes, with the argument that names it.
std::vector<std::pair<std::string, std::string>> named_files(const RecordOptions& o) {
  std::vector<std::pair<std::string, std::string>> files{{"-o", o.output}};
  for (const std::string& url : o.also) files.emplace_back("--also", url);
  files.emplace_back(o.index.empty() ? "the index" : "--index", index_path(o));
  files.emplace_back("--log", o.log);
  files.emplace_back("--input", o.input);
  files.erase(std::remove_if(files.begin(), files.end(),
                             [](const auto& file) { return file.second.empty(); }),
              files.end());
  return files;
}

Status check_files_differ(const RecordOptions& o) {
  auto files = named_files(o);
  for (size_t i = 0; i < files.size(); ++i) {
    for (size_t k = i + 1; k < files.size(); ++k) {
      const auto& [argument_a, a] = files[i];
      const auto& [argument_b, b] = files[k];
      bool local = is_local_file(a) && is_local_file(b);
      if (local ? !same_file(local_path(a), local_path(b)) : a != b) continue;
      return Status(argument_a + " " + a + " and " + argument_b + " " + b + " are the same");
    }
  }
  return {};
}

}  // namespace

bool wants_video(const RecordOptions& o) {
  return !o.no_video && main_codecs(o.output).video != AV_CODEC_ID_NONE;
}

bool wants_audio(const RecordOptions& o) {
  return !o.no_audio && o.raw.empty() && main_codecs(o.output).audio != AV_CODEC_ID_NONE;
}

std::string meta_text(const RecordOptions& o) {
  std::string text;
  for (const std::string& item : o.meta) text += (text.empty() ? "" : ";") + item;
  return text;
}

Status check_record_options(const RecordOptions& options) {
  for (auto check :
       {check_source, check_names, check_rate_control, check_size, check_urls, check_streams,
        check_meta, check_index, check_files_differ, check_encoders, check_further_outputs}) {
    Status status = check(options);
    if (!status.ok()) return status;
  }
  return {};
}

}  // namespace zeva_tool
