#include "session.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "answers.h"
#include "exit_status.h"
#include "file_check.h"
#include "output_guard.h"
#include "output_url.h"
#include "recorder.h"
#include "session_verdict.h"
#include "zeva/log.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int kLogLevelWithFile = 4;
constexpr int kLogLevelOnConsole = 2;

Status set_up_log(const SessionOptions& options, Terminal& terminal) {
  bool to_file = !options.log.empty();
  int level = options.log_level.value_or(to_file ? kLogLevelWithFile : kLogLevelOnConsole);
  if (!options.verbose) {
    if (!terminal.redirect_stderr(options.log)) {
      return Status("--log " + options.log + " cannot be opened for writing");
    }
    ZEVA_Log_On2(nullptr, level);  // standard error, like FFmpeg's own lines
  } else if (to_file) {
    ZEVA_Log_On(options.log.c_str(), level);
  } else {
    ZEVA_Log_Level(level);
  }
  return {};
}

Status check_folder(const std::string& path) {
  std::error_code error;
  fs::path folder = fs::u8path(path).parent_path();
  if (folder.empty() || fs::is_directory(folder, error)) return {};
  return Status("the folder of " + path + " does not exist");
}

Status check_folders(const SessionOptions& options) {
  std::vector<std::string> paths{index_path(options)};
  for (const std::string& url : output_urls(options)) {
    if (is_local_file(url)) paths.push_back(local_path(url));
  }
  for (const std::string& path : paths) {
    Status status = check_folder(path);
    if (!status.ok()) return status;
  }
  return {};
}

bool file_exists(const std::string& path) { return !path.empty() && regular_file_bytes(path) >= 0; }

Status guard(const Session& session, Terminal& terminal) {
  GuardedOutputs outputs;
  outputs.index = index_path(session.options);
  outputs.replace = session.options.replace;
  outputs.may_ask = !session.stdin_is_data;
  for (const std::string& url : output_urls(session.options)) {
    if (is_local_file(url)) outputs.paths.push_back(local_path(url));
  }
  return guard_outputs(outputs, terminal);
}

Status open(const Session& session, Terminal& terminal) {
  Status status = check_folders(session.options);
  if (status.ok()) status = guard(session, terminal);
  if (status.ok()) status = set_up_log(session.options, terminal);
  if (status.ok()) status = session.source.open();
  if (status.ok()) status = session.recording.prepare();
  return status;
}

// An output counts as finished unless it was given up.
void report_success(const RecordingResult& result, const std::vector<std::string>& urls,
                    StatusLine& line) {
  size_t outputs = urls.size();
  for (const ZevaOutputState& state : result.progress.outputs) {
    bool lost = state.phase == kZevaOutputOpening || state.phase == kZevaOutputReconnecting;
    if (lost || state.phase == kZevaOutputGivenUp) --outputs;
  }
  const Progress& progress = result.progress;
  char length[32];
  snprintf(length, sizeof length, "%.1f s", static_cast<double>(progress.movie_us) / 1e6);
  std::string text = std::string("recorded ") + length;
  if (progress.has_pictures) {
    text += ", " + std::to_string(progress.pictures) + " frames, " +
            std::to_string(progress.dropped) + " dropped";
  }
  line.message(text + ", " + std::to_string(outputs) + " output" + (outputs == 1 ? "" : "s") +
               " finished");
  for (const std::string& gap : stream_gaps(urls, result)) line.message("warning: " + gap);
  for (const std::string& doubt : recording_doubts(result)) line.message("warning: " + doubt);
}

// The index goes when the movie is finished, and also when nothing was recorded that it could help
// to bring back; but then an older one was not this recording's.
void settle_index(const SessionOptions& options, const RecordingResult& result, bool finished,
                  bool was_there, StatusLine& line) {
  std::string index = index_path(options);
  if (!file_exists(index) || lacks_index(result)) return;
  if (finished ? !options.keep_index : result.pieces == 0 && !was_there) {
    std::error_code error;
    fs::remove(fs::u8path(index), error);
  } else if (!finished) {
    line.message("the index is kept: " + index);
  }
}

RecordingResult record(const Session& session, Terminal& terminal, StatusLine& line) {
  const SessionOptions& options = session.options;
  RecordingPace pace;
  pace.fast = options.fast;
  if (options.duration_s) pace.duration_us = static_cast<int64_t>(*options.duration_s * 1e6);
  Recorder recorder(session.recording, pace, output_urls(options), session.source, session.spill,
                    terminal, line);
  return recorder.run();
}

// Tells how the recording went. Returns the exit status.
int conclude(const Session& session, const RecordingResult& result, bool index_was_there,
             StatusLine& line) {
  const std::vector<std::string> urls = output_urls(session.options);
  for (const std::string& text : session.source.warnings()) line.message("warning: " + text);
  std::vector<std::string> faults =
      recording_faults(urls, result, session.recording.one_failure_ends_all());
  const bool finished = faults.empty();
  for (const std::string& url : early_ends(urls, result)) {
    if (url != session.spill.ended() || session.spill.path().empty()) {
      faults.push_back(url + " was finished before the recording's end: its disk has no more room");
    }
  }
  if (!session.spill.fault().empty()) faults.push_back(session.spill.fault());
  for (const std::string& fault : missing_parts(result)) faults.push_back(fault);
  for (const std::string& fault : faults) line.message(fault);
  settle_index(session.options, result, finished, index_was_there, line);
  if (!faults.empty()) return kExitFailure;
  report_success(result, urls, line);
  return kExitSuccess;
}

}  // namespace

int run_session(const Session& session, Terminal& terminal, StatusLine& line) {
  terminal.catch_signals();
  Status status = open(session, terminal);
  if (!status.ok()) {
    line.message(status.sentence());
    line.finish({}, kExitFailure);
    return kExitFailure;
  }
  if (!session.stdin_is_data) terminal.take_keys();
  const bool index_was_there = file_exists(index_path(session.options));
  const RecordingResult result = record(session, terminal, line);
  const int exit_status = conclude(session, result, index_was_there, line);
  line.finish(result.progress, exit_status);
  return finish_answers(terminal, exit_status);
}

}  // namespace zeva_tool
