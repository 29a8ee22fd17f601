#include "movie_repair.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "av.h"
#include "exit_status.h"
#include "inspect_text.h"
#include "json_text.h"
#include "text_format.h"
#include "zeva/log.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int kLogLevel = 4;

std::string file_name(const std::string& path) { return fs::u8path(path).filename().u8string(); }

const char* result_word(const RepairOutcome& outcome) {
  return outcome.exit_status == kExitSuccess  ? "whole"
         : outcome.exit_status == kExitPartly ? "partly"
                                              : "nothing";
}

// A file that this repair made and that nobody can read only stands in the way of the next one.
void remove_useless_output(const RepairOutcome& outcome, bool was_there) {
  std::error_code error;
  if (outcome.packets() == 0 && !was_there) fs::remove(fs::u8path(outcome.paths.output), error);
}

// The kinds of the movie's streams; none when it cannot be opened.
std::vector<bool> sound_streams(const std::string& movie) {
  std::vector<bool> sound;
  AVFormatContext* context = nullptr;
  if (avformat_open_input(&context, ("file:" + movie).c_str(), nullptr, nullptr) < 0) return sound;
  InputPtr owner(context);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    sound.push_back(context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO);
  }
  return sound;
}

// A recording has one stream of a kind at most. The output lacks one that did not come back at all,
// so that the others move up.
std::vector<CountedStream> in_index_order(const IndexFacts& facts, const RepairOutcome& outcome) {
  std::vector<CountedStream> ordered(facts.streams.size());
  if (outcome.streams.empty()) return ordered;
  std::vector<bool> sound = sound_streams(outcome.paths.output);
  for (size_t i = 0; i < ordered.size(); ++i) {
    auto found = std::find(sound.begin(), sound.end(), facts.streams[i].audio);
    auto at = static_cast<size_t>(found - sound.begin());
    if (found != sound.end() && at < outcome.streams.size()) ordered[i] = outcome.streams[at];
  }
  return ordered;
}

}  // namespace

Status quiet_libraries(const std::string& log, Terminal& terminal) {
  if (!terminal.redirect_stderr(log) || !terminal.redirect_stdout(log)) {
    return Status("--log " + log + " cannot be opened for writing");
  }
  ZEVA_Log_On2(nullptr, kLogLevel);  // standard error, like FFmpeg's own lines
  return {};
}

RepairOutcome repair_movie(const RepairPaths& paths, const IndexFacts& facts, Terminal& terminal) {
  std::error_code error;
  bool was_there = fs::exists(fs::u8path(paths.output), error);
  RepairOutcome outcome;
  outcome.paths = paths;
  {
    ProgressBar bar(terminal, "repairing " + file_name(paths.broken));
    RepairJob job(terminal, bar);
    outcome.run = job.run(paths);
  }
  bool may_read =
      was_there ? outcome.run.failures.empty() : fs::exists(fs::u8path(paths.output), error);
  if (may_read) {
    ProgressBar bar(terminal, "checking " + file_name(paths.output));
    outcome.unreadable =
        count_movie(
            paths.output, [&bar](double share) { bar.update(share); }, outcome.streams)
            .sentence();
  }
  outcome.streams = in_index_order(facts, outcome);
  judge_repair(facts, outcome);
  remove_useless_output(outcome, was_there);
  return outcome;
}

std::string outcome_text(const IndexFacts& facts, const RepairOutcome& outcome) {
  std::string text;
  if (outcome.packets() == 0) {
    text = "nothing recovered from " + outcome.paths.broken + "\n";
  } else {
    text = "recovered " + length_text(outcome.duration_us()) + " into " + outcome.paths.output +
           (outcome.run.stopped_by_user ? " (stopped before the end)\n" : "\n");
    for (size_t i = 0; i < facts.streams.size(); ++i) {
      const CountedStream& counted = outcome.streams[i];
      text += "  " + stream_name(facts.streams[i]) + ": " + std::to_string(counted.packets) +
              " of " + count_text(facts.streams[i].packets, "packet", "packets") + ", " +
              length_text(counted.end_us - counted.start_us) + "\n";
    }
  }
  const char* word = outcome.packets() == 0 ? "  " : "  lost: ";
  for (const std::string& loss : outcome.losses) text += word + loss + "\n";
  return text;
}

nlohmann::ordered_json outcome_json(const IndexFacts& facts, const RepairOutcome& outcome) {
  nlohmann::ordered_json json;
  json["broken"] = outcome.paths.broken;
  json["index"] = outcome.paths.index;
  json["output"] = outcome.paths.output;
  json["result"] = result_word(outcome);
  json["exit_status"] = outcome.exit_status;
  json["stopped"] = outcome.run.stopped_by_user;
  json["recovered_seconds"] = json_seconds(outcome.duration_us());
  json["streams"] = nlohmann::ordered_json::array();
  for (size_t i = 0; i < facts.streams.size(); ++i) {
    const StreamFacts& promised = facts.streams[i];
    const CountedStream& counted = outcome.streams[i];
    json["streams"].push_back(
        {{"type", promised.audio ? "audio" : "video"},
         {"codec", promised.codec},
         {"recorded_packets", promised.packets},
         {"held_packets", promised.held_packets},
         {"lost_packets", promised.lost_packets},
         {"dependent_packets", promised.dependent_packets},
         {"recovered_packets", counted.packets},
         {"damaged_packets", counted.damaged},
         {"recorded_seconds", json_seconds(promised.duration_us())},
         {"recovered_seconds", json_seconds(counted.end_us - counted.start_us)}});
  }
  json["missing_packets"] = facts.packets() - facts.held_packets();
  json["hole_bytes"] = facts.hole_bytes;
  json["hole_seconds_estimate"] = json_seconds(facts.hole_us);
  json["unrecorded_bytes"] = facts.unrecorded_bytes();
  json["unrecorded_seconds_estimate"] = json_seconds(facts.unrecorded_us());
  json["losses"] = outcome.losses;
  return json;
}

}  // namespace zeva_tool
