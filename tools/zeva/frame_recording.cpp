#include "frame_recording.h"

#include <algorithm>

#include "record_settings.h"

namespace zeva_tool {

FrameRecording::FrameRecording(const RecordOptions& the_options, FrameSource& the_source)
    : options(the_options), source(the_source) {}

Status FrameRecording::prepare() {
  settings = make_settings(options, source.format());
  return {};
}

// Opens on a thread of the library's, since a network output may keep it waiting and Ctrl-C must
// work meanwhile.
void FrameRecording::start(StatusInbox& inbox) {
  recording = ZEVA_start(settings, StatusInbox::receive, &inbox, nullptr, true);
}

bool FrameRecording::begin(RecordingStreams& streams, StatusLine& line) {
  MovieInfo effective{};
  if (!ZEVA_get_mInfo(recording, &effective)) return false;
  if (settings.hardware && !effective.hardware) {
    line.message("no hardware encoder works here; recording with the software encoder");
  }
  streams.pictures = !effective.disable_video;
  streams.sound = !effective.disable_audio;
  streams.fps = std::max(1, effective.fps);
  source.begin(recording, effective);
  return true;
}

}  // namespace zeva_tool
