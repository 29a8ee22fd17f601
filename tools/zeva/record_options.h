// The arguments of `zeva record`.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zeva_tool {

struct RecordOptions {
  std::string input;
  bool pattern = false;
  std::string raw;
  bool loop = false;
  bool fast = false;
  std::optional<double> duration_s;

  std::string output;
  std::vector<std::string> also;
  std::string index;
  bool no_index = false;
  bool keep_index = false;
  std::vector<std::string> meta;
  int timeout_s = 0;

  bool no_video = false;
  std::string size;
  std::optional<int> fps;
  std::optional<int> gop;
  std::string preset = "veryfast";
  std::string profile = "high";
  std::string tune = "none";
  std::string rate_control = "abr";
  std::optional<int> bitrate_kbps;
  std::optional<int> crf;
  std::optional<int> qp;
  bool hardware = false;

  bool no_audio = false;
  int audio_bitrate_kbps = 128;

  std::string log;
  std::optional<int> log_level;
  bool verbose = false;
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
  int fps = 0;
};
std::optional<RawFormat> parse_raw(const std::string& text);  // "1280x720@30"

// All outputs, the main one first.
std::vector<std::string> output_urls(const RecordOptions& options);

// Where the crash-safe index goes; empty for none.
std::string index_path(const RecordOptions& options);

}  // namespace zeva_tool
