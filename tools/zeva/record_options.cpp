#include "record_options.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "picture_rate.h"

namespace zeva_tool {
namespace {

constexpr int kMaxSide = 16384;

constexpr const char* kExamples =
    "Examples:\n"
    "  zeva record --input camera.mp4 -o copy.mp4 --fast\n"
    "  zeva record --pattern --duration 60 -o test.mp4 --also test.flv\n"
    "  zeva record --input camera.mp4 --loop -o rtmp://server/live/key --also archive.mkv\n"
    "  producer | zeva record --raw 1280x720@30 -o screen.mp4 --meta title:Demo\n"
    "\n";

void add_source_options(CLI::App& command, RecordOptions& o) {
  const char* group = "Source (one of the first three)";
  command.add_option("--input", o.input, "Any movie FFmpeg can read")
      ->type_name("FILE")
      ->group(group);
  command.add_flag("--pattern", o.pattern, "The library's test picture and tone")->group(group);
  command.add_option("--raw", o.raw, "BGRA pictures on standard input, no sound, e.g. 1280x720@30")
      ->type_name("WxH@RATE")
      ->group(group);
  command.add_flag("--loop", o.loop, "Start the input over when it ends")->group(group);
  add_pace_options(command, o, group);
}

void add_outputs(CLI::App& command, RecordOptions& o) {
  add_output_options(command, o,
                     "Main output: a file or an rtmp://, rtmps://, rtsp:// or srt:// URL. "
                     "It decides the codecs, unless --vcodec and --acodec do",
                     "Further output, up to three times");
  command.add_option("--timeout", o.timeout_s, "Network time-out")
      ->type_name("SEC")
      ->check(int_in_range(1, 3600))
      ->group("Outputs");
  add_stream_options(command, o);
}

void add_video_options(CLI::App& command, RecordOptions& o) {
  const char* group = "Pictures";
  command.add_flag("--no-video", o.no_video, "Record sound only")->group(group);
  command.add_option("--size", o.size, "Encoded size (default: the source's)")
      ->type_name("WxH")
      ->group(group);
  command
      .add_option("--fps", o.fps,
                  "Put the pictures on a grid of this rate, such as 30, 29.97 or 30000/1001 "
                  "(default: every picture of a movie keeps its own time)")
      ->type_name("RATE")
      ->group(group);
  command.add_option("--gop", o.gop, "Pictures from key picture to key picture (default: 2 s)")
      ->type_name("N")
      ->check(int_in_range(1, 100000))
      ->group(group);
}

void add_rate_options(CLI::App& command, RecordOptions& o, const char* group) {
  command.add_option("--rc", o.rate_control, "Rate control: abr, cbr, vbr, cqp or crf")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  command
      .add_option("--bitrate", o.bitrate_kbps, "Rate of the pictures (default: by size and fps)")
      ->type_name("KBPS")
      ->check(int_in_range(1, 1000000))
      ->group(group);
  command
      .add_option("--crf", o.crf,
                  "Constant quality of --rc crf, 1 best to 51 (default: 23); with --rc cbr the "
                  "quality that it need not exceed")
      ->type_name("N")
      ->check(int_in_range(1, 51))
      ->group(group);
  command.add_option("--qp", o.qp, "Quantiser of --rc cqp, 1 best to 51 (default: 20)")
      ->type_name("N")
      ->check(int_in_range(1, 51))
      ->group(group);
}

void add_encoder_options(CLI::App& command, RecordOptions& o) {
  const char* group = "Encoder";
  command
      .add_option("--vcodec", o.video_codec,
                  "Codec or encoder of the pictures (default: H.264 where the output can hold it)")
      ->type_name("NAME")
      ->group(group);
  command.add_option("--preset", o.preset, "Encoder preset, ultrafast to placebo")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  command
      .add_option(
          "--profile", o.profile,
          "H.264 profile, baseline to high444 (default: high; for high dynamic range high10). "
          "high10, high422 and high444 encode more bits or finer colour; the others make "
          "BT.709 of high dynamic range")
      ->type_name("NAME")
      ->group(group);
  command.add_option("--tune", o.tune, "Encoder tuning, film to zerolatency, or none")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  add_rate_options(command, o, group);
  command
      .add_option("--x264", o.x264,
                  "Further settings of the encoder libx264, in its own words, such as "
                  "bframes=3:ref=4")
      ->type_name("K=V:...")
      ->group(group);
  command.add_flag("--hardware", o.hardware, "Try hardware encoders first")->group(group);
}

void add_stream_encoder_options(CLI::App& command, RecordOptions& o) {
  const char* group = "Pictures of live streams beside files";
  command
      .add_option("--stream-bitrate", o.stream_bitrate_kbps,
                  "An encoder of their own, with this rate (default: they share the files')")
      ->type_name("KBPS")
      ->check(int_in_range(1, 1000000))
      ->group(group);
  command.add_option("--stream-size", o.stream_size, "And this size (default: the files')")
      ->type_name("WxH")
      ->group(group);
  command
      .add_option("--stream-floor", o.stream_floor_kbps,
                  "Lower their rate as far as this while a server does not keep up")
      ->type_name("KBPS")
      ->check(int_in_range(1, 1000000))
      ->group(group);
}

void add_sound_options(CLI::App& command, RecordOptions& o) {
  command.add_flag("--no-audio", o.no_audio, "Record pictures only")->group("Sound");
  command
      .add_option("--acodec", o.audio_codec,
                  "Codec or encoder of the sound (default: AAC where the output can hold it)")
      ->type_name("NAME")
      ->group("Sound");
  command
      .add_option("--audio-bitrate", o.audio_bitrate_kbps,
                  "Rate of the sound (default: 128, and 64 for each channel from the third on)")
      ->type_name("KBPS")
      ->check(int_in_range(8, 1024))
      ->group("Sound");
}

// Takes a number in 1..max off the front of `text`.
bool take_number(std::string_view& text, int max, int& value) {
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || value < 1 || value > max) return false;
  text.remove_prefix(end - text.data());
  return true;
}

bool take_char(std::string_view& text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

bool take_size(std::string_view& text, PictureSize& size) {
  return take_number(text, kMaxSide, size.width) && take_char(text, 'x') &&
         take_number(text, kMaxSide, size.height);
}

}  // namespace

CLI::App* add_record_command(CLI::App& app, RecordOptions& options) {
  CLI::App* command =
      app.add_subcommand("record", "Record a movie, a test pattern or raw pictures");
  command->footer(std::string(kExamples) + kKeysAndExitHelp);
  add_source_options(*command, options);
  add_outputs(*command, options);
  add_video_options(*command, options);
  add_encoder_options(*command, options);
  add_stream_encoder_options(*command, options);
  add_sound_options(*command, options);
  add_message_options(*command, options);
  return command;
}

std::optional<PictureSize> parse_size(const std::string& text) {
  std::string_view rest = text;
  PictureSize size;
  if (!take_size(rest, size) || !rest.empty()) return std::nullopt;
  return size;
}

std::optional<RawFormat> parse_raw(const std::string& text) {
  std::string_view rest = text;
  RawFormat raw;
  if (!take_size(rest, raw.size) || !take_char(rest, '@')) return std::nullopt;
  auto rate = parse_rate(std::string(rest), kMaxRecordedRate);
  if (!rate) return std::nullopt;
  raw.rate = *rate;
  return raw;
}

}  // namespace zeva_tool
