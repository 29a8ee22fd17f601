// The arguments of `zeva record`.
#pragma once

#include <optional>
#include <string>

#include "av.h"
#include "session_options.h"

namespace zeva_tool {

constexpr int kMaxRecordedRate = 240;  // pictures a second

struct RecordOptions : SessionOptions {
  std::string input;
  bool pattern = false;
  std::string raw;
  bool loop = false;
  int timeout_s = 0;

  bool no_video = false;
  std::string size;
  std::string fps;
  std::optional<int> gop;
  std::string video_codec;
  std::string preset = "veryfast";
  std::string profile;
  std::string tune = "none";
  std::string rate_control = "abr";
  std::optional<int> bitrate_kbps;
  std::optional<int> crf;
  std::optional<int> qp;
  std::string x264;
  bool hardware = false;

  std::optional<int> stream_bitrate_kbps;
  std::string stream_size;
  std::optional<int> stream_floor_kbps;

  bool no_audio = false;
  std::string audio_codec;
  std::optional<int> audio_bitrate_kbps;
};

// Adds the subcommand; parsing `app` then fills `options`, which must outlive it.
CLI::App* add_record_command(CLI::App& app, RecordOptions& options);

struct PictureSize {
  int width = 0;
  int height = 0;
};
std::optional<PictureSize> parse_size(const std::string& text);  // "1280x720"

struct RawFormat {
  PictureSize size;
  AVRational rate{0, 1};
};
std::optional<RawFormat> parse_raw(const std::string& text);  // "1280x720@30"

}  // namespace zeva_tool
