#include "recorder.h"

#include <algorithm>

namespace zeva_tool {

Recorder::Recorder(const MovieInfo& the_settings, const RecordingPace& the_pace, Source& the_source,
                   Terminal& the_terminal, StatusLine& the_status_line)
    : settings(the_settings),
      pace(the_pace),
      source(the_source),
      terminal(the_terminal),
      status_line(the_status_line) {
  for (const char* url : settings.other_urls) output_count += url != nullptr;
}

Recorder::~Recorder() { ZEVA_stop(&recording); }

RecordingResult Recorder::run() {
  if (open()) record();
  result.progress.movie_us = ZEVA_movie_time(recording);
  result.stopped_by_user = quit || Terminal::stop_requested();
  ZEVA_stop(&recording);
  status_line.clear();
  result.failures = inbox.failures();
  return result;
}

// Opens on a thread of the library's, since a network output may keep it waiting and Ctrl-C must
// work meanwhile.
bool Recorder::open() {
  recording = ZEVA_start(settings, StatusInbox::receive, &inbox, nullptr, true);
  while (!inbox.opening_decided() && !must_stop()) {
    handle(terminal.wait(status_line.interval_us()));
  }
  result.opened = inbox.opened() && ZEVA_get_mInfo(recording, &result.effective);
  if (!result.opened) return false;
  if (settings.hardware && !result.effective.hardware) {
    status_line.message("no hardware encoder works here; recording with the software encoder");
  }
  result.progress.has_pictures = !result.effective.disable_video;
  pictures_over = result.effective.disable_video;
  sound_over = result.effective.disable_audio;
  grid.set_fps(std::max(1, result.effective.fps));
  source.begin(recording, result.effective);
  return true;
}

void Recorder::record() {
  base_us = ZEVA_current_sys_usec();
  while (!must_stop()) {
    Piece piece = source.next();
    if (piece.kind == Piece::Kind::kEnd) break;
    if (!within_duration(piece)) {
      if (pictures_over && sound_over) break;
      continue;
    }
    if (piece.kind == Piece::Kind::kPicture && !grid.place(piece.time_us)) {
      ++result.progress.dropped;
      continue;
    }
    if (!wait_until_due(piece.time_us)) break;
    write(piece);
    show_progress();
  }
}

bool Recorder::within_duration(const Piece& piece) {
  if (!pace.duration_us || piece.time_us < *pace.duration_us) return true;
  (piece.kind == Piece::Kind::kPicture ? pictures_over : sound_over) = true;
  return false;
}

// False when the recording must stop before.
bool Recorder::wait_until_due(int64_t time_us) {
  int64_t timeout_us = 0;
  while (true) {
    handle(terminal.wait(timeout_us));
    if (must_stop()) return false;
    int64_t left_us = pace.fast ? 0 : base_us + time_us - ZEVA_current_sys_usec();
    if (pause_from_us == 0 && left_us <= 0) return true;
    timeout_us = status_line.interval_us();
    if (pause_from_us == 0) timeout_us = std::min(timeout_us, left_us);
    show_progress();
  }
}

void Recorder::write(const Piece& piece) {
  bool taken = source.write(recording, base_us + piece.time_us);
  ++result.pieces;
  if (piece.kind != Piece::Kind::kPicture) return;
  ++(taken ? result.progress.pictures : result.progress.dropped);
}

void Recorder::handle(Terminal::Event event) {
  if (event == Terminal::Event::kQuitKey) quit = true;
  if (event == Terminal::Event::kPauseKey && inbox.opened()) toggle_pause();
}

void Recorder::toggle_pause() {
  if (pause_from_us == 0) {
    if (ZEVA_pause(recording)) pause_from_us = ZEVA_current_sys_usec();
  } else if (ZEVA_resume(recording)) {
    base_us += ZEVA_current_sys_usec() - pause_from_us;
    pause_from_us = 0;
  }
  show_progress();
}

bool Recorder::must_stop() {
  report_new_failures();
  return quit || Terminal::stop_requested() || inbox.failure_count() >= output_count;
}

void Recorder::show_progress() {
  result.progress.movie_us = ZEVA_movie_time(recording);
  result.progress.failures = inbox.failure_count();
  result.progress.paused = pause_from_us != 0;
  status_line.update(result.progress);
}

// A broken output is told at once, while the others go on.
void Recorder::report_new_failures() {
  if (inbox.failure_count() == failures_reported || output_count == 1) return;
  std::vector<Failure> failures = inbox.failures();
  for (; failures_reported < failures.size(); ++failures_reported) {
    status_line.message("an output failed: " + failures[failures_reported].text);
  }
}

}  // namespace zeva_tool
