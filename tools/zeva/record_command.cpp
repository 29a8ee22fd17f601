#include "record_command.h"

#include <memory>

#include "exit_status.h"
#include "frame_recording.h"
#include "movie_source.h"
#include "output_codecs.h"
#include "output_url.h"
#include "pattern_source.h"
#include "picture_rate.h"
#include "raw_source.h"
#include "record_rules.h"
#include "session.h"

namespace zeva_tool {
namespace {

constexpr PictureSize kPatternSize{1280, 720};
constexpr AVRational kPatternRate{30, 1};

std::unique_ptr<FrameSource> make_source(const RecordOptions& options, Terminal& terminal) {
  bool video = wants_video(options);
  bool audio = wants_audio(options);
  if (!options.input.empty()) {
    return std::make_unique<MovieSource>(
        local_path(options.input),
        MovieSource::Wanted{options.loop, video, audio, colour_limits(options)});
  }
  if (options.pattern) {
    PictureSize size = parse_size(options.size).value_or(kPatternSize);
    AVRational rate = parse_rate(options.fps, kMaxRecordedRate).value_or(kPatternRate);
    return std::make_unique<PatternSource>(size.width, size.height, rate, video, audio);
  }
  RawFormat raw = parse_raw(options.raw).value();
  return std::make_unique<RawSource>(raw.size.width, raw.size.height, raw.rate,
                                     colour_limits(options), terminal);
}

}  // namespace

int run_record(const RecordOptions& options, Terminal& terminal) {
  StatusLine line(terminal, output_urls(options), options.json);
  Status status = check_record_options(options);
  if (!status.ok()) {
    line.message(status.sentence());
    return kExitUsage;
  }
  std::unique_ptr<FrameSource> source = make_source(options, terminal);
  FrameRecording recording(options, *source);
  RecordOptions elsewhere;
  Spill spill(options.spill, [&](const std::string& path) {
    elsewhere = into_file(options, path);
    return std::make_unique<FrameRecording>(elsewhere, *source);
  });
  return run_session({options, *source, recording, spill, !options.raw.empty()}, terminal, line);
}

}  // namespace zeva_tool
