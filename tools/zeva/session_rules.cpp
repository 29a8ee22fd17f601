#include "session_rules.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "file_check.h"
#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

using NamedFiles = std::vector<std::pair<std::string, std::string>>;

Status check_urls(const SessionOptions& o, const SessionLimits& limits) {
  static const std::array<const char*, 5> words{"no", "one", "two", "three", "four"};
  if (o.also.size() > limits.further_outputs) {
    return Status(std::string("--also: at most ") + words.at(limits.further_outputs) +
                  " further outputs are possible");
  }
  if (o.output.empty()) return Status("-o: the URL is empty");
  for (const std::string& url : output_urls(o)) {
    if (url.empty()) return Status("--also: the URL is empty");
    if (url.size() > limits.url_bytes) {
      return Status("output " + url.substr(0, 40) + "...: the URL is longer than " +
                    std::to_string(limits.url_bytes) + " bytes");
    }
  }
  return {};
}

Status check_spill(const SessionOptions& o) {
  std::error_code error;
  if (o.spill.empty() || fs::is_directory(fs::u8path(o.spill), error)) return {};
  return Status("--spill " + o.spill + ": there is no such folder");
}

Status check_meta(const SessionOptions& o, const SessionLimits& limits) {
  for (const std::string& item : o.meta) {
    size_t colon = item.find(':');
    if (colon == std::string::npos || colon == 0) {
      return Status("--meta " + item + ": not of the form key:value");
    }
    if (item.find(';') != std::string::npos) {
      return Status("--meta " + item + ": must not contain ';', which separates the items");
    }
  }
  if (meta_text(o).size() > limits.meta_bytes) {
    return Status("--meta: all items together must not be longer than " +
                  std::to_string(limits.meta_bytes) + " bytes");
  }
  return {};
}

Status check_index(const SessionOptions& o, const SessionLimits& limits) {
  if (o.no_index && !o.index.empty()) return Status("--index and --no-index contradict each other");
  if (o.no_index && o.keep_index)
    return Status("--keep-index and --no-index contradict each other");
  auto urls = output_urls(o);
  if (!o.index.empty() && std::none_of(urls.begin(), urls.end(), takes_index)) {
    return Status("--index: only an MP4 or one of its kin has an index, and no output is one");
  }
  if (index_path(o).size() > limits.index_bytes) {
    return Status("--index: the path is longer than " + std::to_string(limits.index_bytes) +
                  " bytes");
  }
  return {};
}

// Everything the recording reads or writes, with the argument that names it.
NamedFiles named_files(const SessionOptions& o, const NamedFiles& inputs) {
  NamedFiles files{{"-o", o.output}};
  for (const std::string& url : o.also) files.emplace_back("--also", url);
  files.emplace_back(o.index.empty() ? "the index" : "--index", index_path(o));
  files.emplace_back("--log", o.log);
  files.insert(files.end(), inputs.begin(), inputs.end());
  files.erase(std::remove_if(files.begin(), files.end(),
                             [](const auto& file) { return file.second.empty(); }),
              files.end());
  return files;
}

Status check_files_differ(const SessionOptions& o, const NamedFiles& inputs) {
  auto files = named_files(o, inputs);
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

// Codecs that muxers which do not tell can hold, beside their usual ones, for others to read.
struct Holding {
  const char* muxer;
  std::vector<AVCodecID> codecs;
};

const std::vector<Holding>& holdings() {
  static const std::vector<AVCodecID> transport{
      AV_CODEC_ID_H264,  AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO,
      AV_CODEC_ID_MPEG4, AV_CODEC_ID_AAC,  AV_CODEC_ID_MP2,        AV_CODEC_ID_MP3,
      AV_CODEC_ID_AC3,   AV_CODEC_ID_OPUS};
  // Program streams have no place for the header that AAC needs.
  static const std::vector<AVCodecID> program{AV_CODEC_ID_H264,       AV_CODEC_ID_MPEG1VIDEO,
                                              AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MP2,
                                              AV_CODEC_ID_MP3,        AV_CODEC_ID_AC3};
  static const std::vector<AVCodecID> ogg{AV_CODEC_ID_FLAC, AV_CODEC_ID_OPUS, AV_CODEC_ID_VORBIS,
                                          AV_CODEC_ID_THEORA, AV_CODEC_ID_VP8};
  static const std::vector<Holding> all{
      {"mpegts", transport}, {"hls", transport}, {"mpeg", program}, {"svcd", program},
      {"vob", program},      {"ogg", ogg},       {"oga", ogg},      {"ogv", ogg}};
  return all;
}

bool is_listed(const std::string& muxer, AVCodecID codec) {
  const std::vector<Holding>& all = holdings();
  return std::any_of(all.begin(), all.end(), [&](const Holding& holding) {
    return holding.muxer == muxer &&
           std::count(holding.codecs.begin(), holding.codecs.end(), codec) > 0;
  });
}

}  // namespace

Status check_session_options(const SessionOptions& options, const SessionLimits& limits,
                             const NamedFiles& inputs) {
  Status status = check_urls(options, limits);
  if (status.ok()) status = check_spill(options);
  if (status.ok()) status = check_meta(options, limits);
  if (status.ok()) status = check_index(options, limits);
  if (status.ok()) status = check_files_differ(options, inputs);
  return status;
}

bool can_hold(AVOutputFormat* container, AVCodecID codec) {
  int answer = avformat_query_codec(container, codec, FF_COMPLIANCE_NORMAL);
  return answer != AVERROR_PATCHWELCOME ? answer > 0 : is_listed(container->name, codec);
}

}  // namespace zeva_tool
