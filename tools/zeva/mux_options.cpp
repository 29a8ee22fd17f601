#include "mux_options.h"

#include <CLI/CLI.hpp>

namespace zeva_tool {
namespace {

constexpr const char* kExamples =
    "Examples:\n"
    "  zeva mux --input camera.mp4 -o copy.mkv --also copy.flv --fast\n"
    "  zeva mux --input camera.mp4 -o movie.mp4 --also rtmp://server/live/key\n"
    "  zeva mux --video camera.h264 --fps 30 --audio camera.aac -o movie.mp4 --fast\n"
    "  producer | zeva mux --video camera.h264 --pcm --pcm-rate 44100 -o movie.mp4\n"
    "\n";

void add_source_options(CLI::App& command, MuxOptions& o) {
  const char* group = "Source (--input, or --video with or without a sound)";
  command.add_option("--input", o.input, "The H.264 and AAC of a movie, as they are")
      ->type_name("FILE")
      ->group(group);
  command.add_flag("--no-video", o.no_video, "Take only the input's sound")->group(group);
  command.add_flag("--no-audio", o.no_audio, "Take only the input's pictures")->group(group);
  command.add_option("--video", o.video, "An H.264 stream in a file (Annex B)")
      ->type_name("FILE")
      ->group(group);
  command.add_option("--fps", o.fps, "Pictures a second of --video (default: the stream's, or 25)")
      ->type_name("N")
      ->group(group);
  command.add_option("--audio", o.audio, "An AAC stream in a file (ADTS)")
      ->type_name("FILE")
      ->group(group);
  add_pace_options(command, o, group);
}

void add_pcm_options(CLI::App& command, MuxOptions& o) {
  const char* group = "Sound on standard input";
  command.add_flag("--pcm", o.pcm, "Take raw interleaved sound and encode it to AAC")->group(group);
  command.add_option("--pcm-format", o.pcm_format.sample_format, "s16 or flt32")
      ->type_name("NAME")
      ->capture_default_str()
      ->group(group);
  command.add_option("--pcm-rate", o.pcm_format.sample_rate, "Samples a second")
      ->type_name("HZ")
      ->capture_default_str()
      ->group(group);
  command.add_option("--pcm-channels", o.pcm_format.channels, "Channels")
      ->type_name("N")
      ->capture_default_str()
      ->check(int_in_range(1, 8))
      ->group(group);
  command.add_option("--audio-bitrate", o.pcm_format.bitrate_kbps, "Rate of the encoded sound")
      ->type_name("KBPS")
      ->capture_default_str()
      ->check(int_in_range(8, 1024))
      ->group(group);
}

}  // namespace

CLI::App* add_mux_command(CLI::App& app, MuxOptions& options) {
  CLI::App* command =
      app.add_subcommand("mux", "Record packets that are encoded already, or raw sound");
  command->footer(std::string(kExamples) + kKeysAndExitHelp);
  add_source_options(*command, options);
  add_pcm_options(*command, options);
  add_output_options(*command, options,
                     "Main output: a file or an rtmp://, rtmps://, rtsp:// or srt:// URL",
                     "Further output, up to four times");
  add_stream_options(*command, options);
  add_message_options(*command, options);
  return command;
}

}  // namespace zeva_tool
