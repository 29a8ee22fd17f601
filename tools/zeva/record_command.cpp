#include "record_command.h"

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "exit_status.h"
#include "movie_source.h"
#include "output_check.h"
#include "output_url.h"
#include "pattern_source.h"
#include "raw_source.h"
#include "record_rules.h"
#include "record_settings.h"
#include "recorder.h"
#include "status_line.h"
#include "zeva/log.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr PictureSize kPatternSize{1280, 720};
constexpr int kPatternFps = 30;
constexpr int kLogLevelWithFile = 4;
constexpr int kLogLevelOnConsole = 2;
constexpr int kMainOutputNotOpened = 11;  // ZEVA_status_callback

Status set_up_log(const RecordOptions& options, Terminal& terminal) {
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

std::unique_ptr<Source> make_source(const RecordOptions& options, Terminal& terminal) {
  bool video = wants_video(options);
  bool audio = wants_audio(options);
  if (!options.input.empty()) {
    return std::make_unique<MovieSource>(local_path(options.input), options.loop, video, audio);
  }
  if (options.pattern) {
    PictureSize size = parse_size(options.size).value_or(kPatternSize);
    int fps = options.fps.value_or(kPatternFps);
    return std::make_unique<PatternSource>(size.width, size.height, fps, video, audio);
  }
  RawFormat raw = parse_raw(options.raw).value();
  return std::make_unique<RawSource>(raw.size.width, raw.size.height, raw.fps, terminal);
}

Status check_folder(const std::string& path) {
  std::error_code error;
  fs::path folder = fs::u8path(path).parent_path();
  if (folder.empty() || fs::is_directory(folder, error)) return {};
  return Status("the folder of " + path + " does not exist");
}

Status check_folders(const RecordOptions& options) {
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

// An index beside an unfinished movie is all that can bring that movie back.
Status check_no_broken_recording(const RecordOptions& options) {
  std::string index = index_path(options);
  std::error_code error;
  if (index.empty() || !fs::exists(fs::u8path(index), error)) return {};
  for (const std::string& url : output_urls(options)) {
    if (!is_local_file(url) || !has_ending(url, ".mp4")) continue;
    bool exists = fs::exists(fs::u8path(local_path(url)), error);
    if (!exists || check_movie_file(local_path(url)).ok()) continue;
    return Status(url + " is an unfinished recording that its index " + index +
                  " can still bring back; move both away or delete the index first");
  }
  return {};
}

// Which outputs are not what they should be, a sentence each. The library's reports do not say
// which output they are about; the files do.
std::vector<std::string> find_faults(const std::vector<std::string>& urls,
                                     const RecordingResult& result) {
  std::vector<std::string> faults;
  std::vector<std::string> unseen;
  std::string reason = result.failures.empty() ? "" : ": " + result.failures.front().text;
  for (const std::string& url : urls) {
    if (!is_local_file(url)) {
      unseen.push_back(url);
      continue;
    }
    Status status = result.failures.empty()
                        ? check_movie_file(local_path(url))
                        : check_movie_length(local_path(url), result.progress.movie_us);
    if (!status.ok())
      faults.push_back(url + " was not finished" + reason + "; " + status.sentence());
  }
  if (!result.failures.empty() && faults.empty()) {
    std::string name = urls.size() == 1     ? urls.front()
                       : unseen.size() == 1 ? unseen.front()
                                            : "one of the outputs";
    faults.push_back(name + " failed" + reason);
  }
  return faults;
}

std::vector<std::string> opening_faults(const std::vector<std::string>& urls,
                                        const RecordingResult& result) {
  std::vector<std::string> faults;
  for (const Failure& failure : result.failures) {
    bool is_main = urls.size() == 1 || failure.code == kMainOutputNotOpened;
    faults.push_back((is_main ? urls.front() : "an output") +
                     " could not be opened: " + failure.text);
  }
  if (faults.empty()) faults.emplace_back("stopped before the outputs were open");
  return faults;
}

std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result) {
  if (!result.opened) return opening_faults(urls, result);
  if (result.pieces == 0 && !result.stopped_by_user && result.failures.empty()) {
    return {"the source brought nothing to record"};
  }
  return find_faults(urls, result);
}

void report_success(const RecordingResult& result, size_t outputs, StatusLine& line) {
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
}

bool file_exists(const std::string& path) {
  std::error_code error;
  return !path.empty() && fs::exists(fs::u8path(path), error);
}

void remove_file(const std::string& path) {
  std::error_code error;
  fs::remove(fs::u8path(path), error);
}

// The index goes when the movie is finished, and also when nothing was recorded that it could help
// to bring back; but then an older one was not this recording's.
void settle_index(const RecordOptions& options, const RecordingResult& result, bool finished,
                  bool was_there, StatusLine& line) {
  std::string index = index_path(options);
  if (!file_exists(index)) return;
  if (finished ? !options.keep_index : result.pieces == 0 && !was_there) {
    remove_file(index);
  } else if (!finished) {
    line.message("the index is kept: " + index);
  }
}

// Returns the exit status.
int judge(const RecordOptions& options, const RecordingResult& result, bool index_was_there,
          StatusLine& line) {
  std::vector<std::string> urls = output_urls(options);
  std::vector<std::string> faults = recording_faults(urls, result);
  for (const std::string& fault : faults) line.message(fault);
  settle_index(options, result, faults.empty(), index_was_there, line);
  if (!faults.empty()) return kExitFailure;
  report_success(result, urls.size(), line);
  return kExitSuccess;
}

RecordingResult record(const RecordOptions& options, Source& source, Terminal& terminal,
                       StatusLine& line) {
  MovieInfo settings = make_settings(options, source.format());
  RecordingPace pace;
  pace.fast = options.fast;
  if (options.duration_s) pace.duration_us = static_cast<int64_t>(*options.duration_s * 1e6);
  Recorder recorder(settings, pace, source, terminal, line);
  return recorder.run();
}

Status check_before_opening(const RecordOptions& options) {
  Status status = check_folders(options);
  return status.ok() ? check_no_broken_recording(options) : status;
}

}  // namespace

int run_record(const RecordOptions& options, Terminal& terminal) {
  StatusLine line(terminal, output_urls(options));
  Status status = check_record_options(options);
  if (!status.ok()) {
    line.message(status.sentence());
    return kExitUsage;
  }
  terminal.catch_signals();
  std::unique_ptr<Source> source = make_source(options, terminal);
  status = set_up_log(options, terminal);
  if (status.ok()) status = check_before_opening(options);
  if (status.ok()) status = source->open();
  if (!status.ok()) {
    line.message(status.sentence());
    return kExitFailure;
  }
  if (options.raw.empty()) terminal.take_keys();
  bool index_was_there = file_exists(index_path(options));
  RecordingResult result = record(options, *source, terminal, line);
  for (const std::string& warning : source->warnings()) line.message("warning: " + warning);
  return judge(options, result, index_was_there, line);
}

}  // namespace zeva_tool
