// Runs one recording: opens it, hands every piece of the source to the library when it is due,
// follows keys and signals, and finishes it.
//
// The stamps that the library gets count from the recording's beginning. While the recording is
// paused the source stands still, so that nothing of a file is lost; the stamps of what follows are
// moved by the length of the pause, which the library takes out again. run() is called once, from
// the main thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "picture_grid.h"
#include "recording.h"
#include "source.h"
#include "spill.h"
#include "status_inbox.h"
#include "status_line.h"
#include "terminal.h"

namespace zeva_tool {

struct RecordingPace {
  bool fast = false;                   // do not wait until a piece is due
  std::optional<int64_t> duration_us;  // stop at this movie time
};

struct RecordingResult {
  bool opened = false;
  bool stopped_by_user = false;
  std::string refusal;  // why the library took no more before the source was at its end
  int64_t pieces = 0;
  Progress progress;
  std::vector<Report> failures;
  std::vector<Report> notices;  // reports that ended nothing
};

class Recorder {
 public:
  // The references must outlive the recorder.
  Recorder(Recording& recording, const RecordingPace& pace, std::vector<std::string> urls,
           Source& source, Spill& spill, Terminal& terminal, StatusLine& status_line);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  RecordingResult run();

 private:
  bool open();
  void record();
  bool within_duration(const Piece& piece);
  bool wait_until_due(int64_t time_us);
  bool write(const Piece& piece);
  void drain();
  void handle(Terminal::Event event);
  void toggle_pause();
  bool must_stop();
  void show_progress();
  void look_at_outputs();
  bool goes_on_elsewhere();
  void wait_for_tables();
  bool everything_has_ended() const;
  void show_new_reports();
  void show_new_failures();

  Recording& recording;
  const RecordingPace pace;
  const std::vector<std::string> urls;
  Source& source;
  Spill& spill;
  Terminal& terminal;
  StatusLine& status_line;

  StatusInbox inbox;
  RecordingStreams streams;
  PictureGrid grid;
  RecordingResult result;
  size_t failures_shown = 0;
  size_t notices_shown = 0;
  bool quit = false;
  int64_t begun_us = 0;
  int64_t paused_us = 0;  // all pauses together
  int64_t pause_from_us = 0;
  int64_t next_look_us = 0;
  int64_t stamp_us = 0;  // of the latest piece
  bool pictures_over = false;
  bool sound_over = false;
};

}  // namespace zeva_tool
