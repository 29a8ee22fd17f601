#include "session_verdict.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "file_check.h"
#include "output_check.h"
#include "output_url.h"
#include "zeva/status.h"

namespace zeva_tool {
namespace {

using Sentences = std::vector<std::string>;

constexpr int kMainOutputNotOpened = 11;  // ZEVA_status_callback
// Encoders hold back a little at both ends, and sound is cut into whole frames.
constexpr int64_t kEncodersHoldBackUs = 2000000;
constexpr int64_t kPacketsHoldBackUs = 500000;

std::string first_reason(const RecordingResult& result) {
  if (!result.failures.empty()) return ": " + result.failures.front().text;
  return result.refusal.empty() ? "" : ": " + result.refusal;
}

// The output that a report is about; empty when it does not say.
std::string failed_name(const std::vector<std::string>& urls, const Report& failure) {
  for (const std::string& url : urls) {
    if (failure.text.find("'" + url + "'") != std::string::npos) return url;
  }
  bool is_main = urls.size() == 1 || failure.code == kMainOutputNotOpened;
  return is_main ? urls.front() : "";
}

bool can_be_checked(const std::string& url) {
  return is_local_file(url) && !is_special_file(local_path(url));
}

bool ended_early(const std::string& url, const RecordingResult& result) {
  return std::any_of(result.notices.begin(), result.notices.end(), [&](const Report& notice) {
    return notice.code == kZevaStatusFileFinishedEarly &&
           notice.text.find("'" + url + "'") != std::string::npos;
  });
}

Status check_output(const std::string& url, const RecordingResult& result, bool of_packets) {
  const bool whole_by_itself = ended_early(url, result);
  if (whole_by_itself || (!of_packets && result.failures.empty()))
    return check_movie_file(local_path(url));
  int64_t tolerance_us = of_packets ? kPacketsHoldBackUs : kEncodersHoldBackUs;
  return check_movie_length(local_path(url), result.progress.movie_us, tolerance_us);
}

// The one output that nobody can look at, or no particular one.
std::string suspect(const std::vector<std::string>& urls) {
  auto unseen = [](const std::string& url) { return !can_be_checked(url); };
  bool one = std::count_if(urls.begin(), urls.end(), unseen) == 1;
  return one ? *std::find_if(urls.begin(), urls.end(), unseen) : "one of the outputs";
}

Sentences find_faults(const std::vector<std::string>& urls, const RecordingResult& result,
                      bool of_packets) {
  Sentences faults;
  std::set<std::string> named;
  for (const Report& failure : result.failures) {
    std::string name = failed_name(urls, failure);
    if (name.empty() || !named.insert(name).second) continue;
    faults.push_back(name + " failed: " + failure.text);
  }
  for (const std::string& url : urls) {
    if (!can_be_checked(url) || named.count(url) > 0) continue;
    Status status = check_output(url, result, of_packets);
    if (status.ok()) continue;
    faults.push_back(url + " was not finished" + first_reason(result) + "; " + status.sentence());
  }
  if (faults.empty() && !result.failures.empty()) {
    faults.push_back(suspect(urls) + " failed" + first_reason(result));
  }
  return faults;
}

Sentences opening_faults(const std::vector<std::string>& urls, const RecordingResult& result,
                         bool of_packets) {
  Sentences faults;
  std::string hint = of_packets ? "; some encoded pictures must come before they are known" : "";
  // Packets may have gone to it already, unseen: the text tells.
  std::string what = of_packets ? " failed: " : " could not be opened: ";
  for (const Report& failure : result.failures) {
    std::string name = failed_name(urls, failure);
    faults.push_back((name.empty() ? "an output" : name) + what + failure.text);
  }
  if (faults.empty()) faults.emplace_back("stopped before the outputs were open" + hint);
  return faults;
}

// The sentences of those codes that were reported.
Sentences told_of(const RecordingResult& result,
                  const std::vector<std::pair<int, const char*>>& sentences) {
  Sentences told;
  for (const auto& [code, sentence] : sentences) {
    for (const Report& notice : result.notices) {
      if (notice.code != code) continue;
      told.emplace_back(sentence);
      break;
    }
  }
  return told;
}

}  // namespace

Sentences recording_faults(const std::vector<std::string>& urls, const RecordingResult& result,
                           bool of_packets) {
  if (!result.opened) return opening_faults(urls, result, of_packets);
  if (result.pieces == 0 && !result.stopped_by_user && result.failures.empty()) {
    return {"the source brought nothing to record"};
  }
  Sentences faults = find_faults(urls, result, of_packets);
  if (of_packets && faults.empty() && !result.refusal.empty()) faults.push_back(result.refusal);
  return faults;
}

Sentences early_ends(const Sentences& urls, const RecordingResult& result) {
  Sentences ended;
  std::copy_if(urls.begin(), urls.end(), std::back_inserter(ended),
               [&](const std::string& url) { return ended_early(url, result); });
  return ended;
}

Sentences stream_gaps(const std::vector<std::string>& urls, const RecordingResult& result) {
  Sentences gaps;
  const std::vector<ZevaOutputState>& states = result.progress.outputs;
  for (size_t i = 0; i < urls.size() && i < states.size(); ++i) {
    const ZevaOutputState& state = states[i];
    if (is_local_file(urls[i]) || state.packets_dropped == 0) continue;
    std::string text = urls[i] + " did not get " + std::to_string(state.packets_dropped) +
                       " packets, " + std::to_string(state.pictures_dropped) + " of them pictures";
    if (state.reconnects > 0) {
      text += "; it came back " + std::to_string(state.reconnects) + " times";
    }
    gaps.push_back(text);
  }
  return gaps;
}

Sentences missing_parts(const RecordingResult& result) {
  return told_of(
      result, {{kZevaStatusPictureRefused, "the outputs lack pictures: the encoder refused them"},
               {kZevaStatusSoundRefused, "the outputs lack sound: the encoder refused it"},
               {kZevaStatusInputLate, "the outputs lack a stream: it began too late"}});
}

bool lacks_index(const RecordingResult& result) {
  return !told_of(result, {{kZevaStatusIndexMissing, ""}}).empty();
}

Sentences recording_doubts(const RecordingResult& result) {
  return told_of(
      result,
      {{kZevaStatusIndexMissing, "there was no index: a crash would have lost the movie"},
       {kZevaStatusIndexFailing, "the index has a hole: a crash would have lost part of the movie"},
       {kZevaStatusSyncFailing,
        "the disk did not confirm all it was given: a power failure would "
        "have lost part of the movie"}});
}

}  // namespace zeva_tool
