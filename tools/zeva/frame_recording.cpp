#include "frame_recording.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace zeva_tool {
namespace {

// An encoder may know other rates only than the one that was asked for.
AVRational taken_rate(const MovieInfo& wanted, AVRational rate, const MovieInfo& effective) {
  return effective.fps == wanted.fps ? rate : AVRational{std::max(1, effective.fps), 1};
}

// The library names fields of its settings; the user knows arguments.
std::string in_arguments(std::string text) {
  const std::pair<const char*, const char*> names[] = {{"stream_bitrate_floor", "--stream-floor"},
                                                       {"stream_bitrate", "--stream-bitrate"},
                                                       {"stream_width", "--stream-size"},
                                                       {"stream_height", "--stream-size"},
                                                       {"encoder_options", "--x264"},
                                                       {"video_codec", "--vcodec"},
                                                       {"audio_codec", "--acodec"}};
  for (const auto& [field, argument] : names) {
    size_t at = text.find(field);
    if (at != std::string::npos) text.replace(at, strlen(field), argument);
  }
  return text;
}

}  // namespace

FrameRecording::FrameRecording(const RecordOptions& the_options, FrameSource& the_source)
    : options(the_options), policies(the_options), source(the_source) {}

Status FrameRecording::prepare() {
  settings = make_settings(options, source.format());
  return {};
}

// Opens on a thread of the library's, since a network output may keep it waiting and Ctrl-C must
// work meanwhile.
void FrameRecording::start(StatusInbox& the_inbox) {
  inbox = &the_inbox;
  ZevaOptions more = settings.options();
  policies.put_into(more);
  recording = ZEVA_start_with(&settings.movie, &more, receive, this, nullptr, true);
}

void FrameRecording::receive(int code, const char* message, void* self) noexcept {
  StatusInbox* inbox = static_cast<FrameRecording*>(self)->inbox;
  try {
    StatusInbox::receive(code, in_arguments(message).c_str(), inbox);
  } catch (const std::bad_alloc&) {
    StatusInbox::receive(code, message, inbox);
  }
}

bool FrameRecording::begin(RecordingStreams& streams, StatusLine& line) {
  MovieInfo effective{};
  if (!ZEVA_get_mInfo(recording, &effective)) return false;
  if (settings.movie.hardware && !effective.hardware) {
    line.message("no hardware encoder works here; recording with the software encoder");
  }
  streams.pictures = !effective.disable_video;
  streams.sound = !effective.disable_audio;
  if (!settings.variable_rate)
    streams.grid_rate = taken_rate(settings.movie, settings.rate, effective);
  source.begin(recording, effective);
  return true;
}

}  // namespace zeva_tool
