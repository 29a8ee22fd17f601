#include "recorder.h"

#include <algorithm>
#include <utility>

#include "zeva/record.h"

namespace zeva_tool {
namespace {

constexpr int64_t kLookUs = 200000;
constexpr int64_t kRoomPollUs = 1000;
constexpr int64_t kFastPiecesAtOnce = 16;  // keys are looked at that often
constexpr int64_t kDrainPollUs = 5000;
// The library looks for more for some 20 ms before it goes on with what it has; a server that is
// being connected to may take longer.
constexpr int64_t kDrainStandstillUs = 100000;
constexpr int64_t kOpeningStandstillUs = 1000000;

}  // namespace

Recorder::Recorder(Recording& the_recording, const RecordingPace& the_pace,
                   std::vector<std::string> all_urls, Source& the_source, Spill& the_spill,
                   Terminal& the_terminal, StatusLine& the_status_line)
    : recording(the_recording),
      pace(the_pace),
      urls(std::move(all_urls)),
      source(the_source),
      spill(the_spill),
      terminal(the_terminal),
      status_line(the_status_line) {}

Recorder::~Recorder() { recording.stop(); }

RecordingResult Recorder::run() {
  bool begun = open();
  if (begun) record();
  if (begun) drain();
  result.progress.movie_us = recording.movie_time_us();
  result.stopped_by_user = quit || Terminal::stop_requested();
  look_at_outputs();
  recording.stop();
  spill.stop();
  result.opened = begun && recording.outputs_opened();
  status_line.clear();
  show_new_reports();
  result.failures = inbox.failures();
  result.notices = inbox.notices();
  return result;
}

bool Recorder::open() {
  recording.start(inbox);
  while (!inbox.opening_decided() && !must_stop()) {
    handle(terminal.wait(status_line.interval_us()));
  }
  if (!inbox.opened() || !recording.begin(streams, status_line)) return false;
  result.progress.has_pictures = streams.pictures;
  pictures_over = !streams.pictures;
  sound_over = !streams.sound;
  if (streams.grid_rate.num > 0) grid.set_rate(streams.grid_rate);
  return true;
}

void Recorder::record() {
  begun_us = ZEVA_current_sys_usec();
  while (!must_stop()) {
    Piece piece = source.next();
    if (piece.kind == Piece::Kind::kEnd) break;
    if (!within_duration(piece)) {
      if (pictures_over && sound_over) break;
      continue;
    }
    bool on_grid = streams.grid_rate.num > 0 && piece.kind == Piece::Kind::kPicture;
    if (on_grid && !grid.place(piece.time_us)) {
      ++result.progress.dropped;
      continue;
    }
    if (!wait_until_due(piece.at_once ? 0 : piece.time_us) || !write(piece)) break;
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
  bool look = !pace.fast || result.pieces % kFastPiecesAtOnce == 0;
  for (;; look = true) {
    if (look) handle(terminal.wait(timeout_us));
    if (must_stop()) return false;
    int64_t left_us = pace.fast ? 0 : begun_us + paused_us + time_us - ZEVA_current_sys_usec();
    bool due = pause_from_us == 0 && left_us <= 0;
    Recording& slowest = spill.place() != nullptr ? *spill.place() : recording;
    Recording::Room room = due ? slowest.room() : Recording::Room::kNotYet;
    if (room == Recording::Room::kYes) return true;
    if (room == Recording::Room::kNever) {
      result.refusal = "the library stands still";
      return false;
    }
    timeout_us = due ? kRoomPollUs : status_line.interval_us();
    if (!due && pause_from_us == 0) timeout_us = std::min(timeout_us, left_us);
    show_progress();
  }
}

// False when the recording takes no more.
bool Recorder::write(const Piece& piece) {
  stamp_us = paused_us + piece.time_us;
  bool taken = source.write(recording.handle(), stamp_us);
  if (!taken && spill.is_free() && recording.has_ended()) wait_for_tables();
  bool elsewhere = taken ? spill.is_running() : goes_on_elsewhere();
  if (elsewhere) taken = spill.write(source, stamp_us) || taken;
  ++result.pieces;
  if (!taken && !elsewhere && recording.has_ended()) {
    result.refusal = "the library takes no more packets; its messages tell why (--log)";
  }
  if (piece.kind == Piece::Kind::kPicture) {
    ++(taken ? result.progress.pictures : result.progress.dropped);
  }
  return result.refusal.empty();
}

// Waits until every packet has reached its outputs, as long as it goes on.
void Recorder::drain() {
  recording.flush();
  if (spill.place() != nullptr) spill.place()->flush();
  int64_t before = -1;
  int64_t still_since_us = 0;
  for (int64_t left = recording.waiting(); left > 0; left = recording.waiting()) {
    int64_t now_us = ZEVA_current_sys_usec();
    if (left != before) still_since_us = now_us;
    int64_t limit_us = recording.outputs_opened() ? kDrainStandstillUs : kOpeningStandstillUs;
    if (now_us - still_since_us > limit_us || inbox.failure_count() > 0) break;
    before = left;
    handle(terminal.wait(kDrainPollUs));
    show_progress();
  }
}

void Recorder::handle(Terminal::Event event) {
  if (event == Terminal::Event::kQuitKey) quit = true;
  if (event == Terminal::Event::kPauseKey && inbox.opened()) toggle_pause();
}

void Recorder::toggle_pause() {
  if (pause_from_us == 0) {
    if (recording.pause()) pause_from_us = ZEVA_current_sys_usec();
    if (spill.place() != nullptr) spill.place()->pause();
  } else if (recording.resume()) {
    if (spill.place() != nullptr) spill.place()->resume();
    paused_us += ZEVA_current_sys_usec() - pause_from_us;
    pause_from_us = 0;
  }
  show_progress();
}

bool Recorder::must_stop() {
  show_new_reports();
  size_t enough = recording.one_failure_ends_all() ? 1 : urls.size();
  bool failed = inbox.failure_count() >= enough && !goes_on_elsewhere();
  return quit || Terminal::stop_requested() || failed || everything_has_ended();
}

void Recorder::show_progress() {
  result.progress.movie_us = recording.movie_time_us();
  result.progress.failures = inbox.failure_count();
  result.progress.paused = pause_from_us != 0;
  int64_t now_us = ZEVA_current_sys_usec();
  if (now_us >= next_look_us) {
    next_look_us = now_us + kLookUs;
    (void)goes_on_elsewhere();
  }
  status_line.update(result.progress);
}

// True when what is still to come has a place although outputs have ended.
bool Recorder::goes_on_elsewhere() {
  look_at_outputs();
  if (!spill.is_running() && spill.is_wanted(urls, result.progress.outputs)) {
    spill.begin(stamp_us, terminal, status_line);
  }
  return spill.is_running();
}

// A file that takes no more has not ended before its table is written. Until then nothing would go
// elsewhere.
void Recorder::wait_for_tables() {
  auto is_open = [](const ZevaOutputState& state) {
    return state.phase == kZevaOutputLive || state.phase == kZevaOutputDropping;
  };
  const std::vector<ZevaOutputState>& states = result.progress.outputs;
  look_at_outputs();
  while (std::any_of(states.begin(), states.end(), is_open) && !quit &&
         !Terminal::stop_requested()) {
    handle(terminal.wait(kRoomPollUs));
    look_at_outputs();
  }
}

// Files that ended early, say: nothing takes what is still to come.
bool Recorder::everything_has_ended() const {
  const std::vector<ZevaOutputState>& states = result.progress.outputs;
  return !states.empty() && !spill.is_running() &&
         std::all_of(states.begin(), states.end(), [](const ZevaOutputState& state) {
           return state.phase == kZevaOutputFinished || state.phase == kZevaOutputGivenUp;
         });
}

void Recorder::look_at_outputs() {
  std::vector<ZevaOutputState> states;
  for (size_t i = 0; i < urls.size(); ++i) {
    ZevaOutputState state;
    ZevaOutputState_init(&state);
    if (!recording.output_state(static_cast<int32_t>(i), state)) return;
    states.push_back(state);
  }
  result.progress.outputs = std::move(states);
  ZevaStatistics_init(&result.progress.statistics);
  (void)recording.statistics(result.progress.statistics);
}

void Recorder::show_new_reports() {
  bool ends_all = urls.size() == 1 || recording.one_failure_ends_all();
  if (!ends_all) show_new_failures();  // otherwise the end will tell
  for (const Report& change : inbox.take_changes()) status_line.message(change.text);
  if (inbox.notice_count() == notices_shown) return;
  std::vector<Report> notices = inbox.notices();
  for (; notices_shown < notices.size(); ++notices_shown) {
    status_line.message("warning: " + notices[notices_shown].text);
  }
}

// A broken output is told at once, while the others go on.
void Recorder::show_new_failures() {
  if (inbox.failure_count() == failures_shown) return;
  std::vector<Report> failures = inbox.failures();
  for (; failures_shown < failures.size(); ++failures_shown) {
    status_line.message("an output failed: " + failures[failures_shown].text);
  }
}

}  // namespace zeva_tool
