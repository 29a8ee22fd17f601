// The arguments of `zeva mux`.
#pragma once

#include <optional>
#include <string>

#include "av.h"
#include "pcm_track.h"
#include "session_options.h"

namespace zeva_tool {

struct MuxOptions : SessionOptions {
  std::string input;
  bool no_video = false;
  bool no_audio = false;
  std::string video;
  std::string fps;
  std::string audio;
  bool pcm = false;
  PcmFormat pcm_format{"s16", 48000, 2, 128};
};

constexpr int kMaxStreamRate = 1000;  // pictures a second

// Adds the subcommand; parsing `app` then fills `options`, which must outlive it.
CLI::App* add_mux_command(CLI::App& app, MuxOptions& options);

}  // namespace zeva_tool
