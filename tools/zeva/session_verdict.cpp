#include "session_verdict.h"

#include <set>

#include "output_check.h"
#include "output_url.h"

namespace zeva_tool {
namespace {

constexpr int kMainOutputNotOpened = 11;  // ZEVA_status_callback
// Encoders hold back a little at both ends, and sound is cut into whole frames.
constexpr int64_t kEncodersHoldBackUs = 2000000;
constexpr int64_t kPacketsHoldBackUs = 500000;

std::string first_reason(const RecordingResult& result) {
  if (!result.failures.empty()) return ": " + result.failures.front().text;
  return result.refusal.empty() ? "" : ": " + result.refusal;
}

std::string failed_name(const std::vector<std::string>& urls, const Failure& failure) {
  for (const std::string& url : urls) {
    if (failure.text.find("'" + url + "'") != std::string::npos) return url;
  }
  bool is_main = urls.size() == 1 || failure.code == kMainOutputNotOpened;
  return is_main ? urls.front() : "an output";
}

// Of packets: the outputs that were cut are named, and ended the others.
std::vector<std::string> find_cut_outputs(const std::vector<std::string>& urls,
                                          const RecordingResult& result) {
  std::vector<std::string> faults;
  std::set<std::string> named;
  for (const Failure& failure : result.failures) {
    std::string name = failed_name(urls, failure);
    faults.push_back(name + " failed: " + failure.text);
    named.insert(name);
  }
  for (const std::string& url : urls) {
    if (!is_local_file(url) || named.count(url) > 0) continue;
    Status status =
        check_movie_length(local_path(url), result.progress.movie_us, kPacketsHoldBackUs);
    if (status.ok()) continue;
    faults.push_back(url + " was not finished" + first_reason(result) + "; " + status.sentence());
  }
  return faults;
}

std::vector<std::string> find_faults(const std::vector<std::string>& urls,
                                     const RecordingResult& result) {
  std::vector<std::string> faults;
  std::vector<std::string> unseen;
  bool failed = !result.failures.empty();
  std::string reason = first_reason(result);
  for (const std::string& url : urls) {
    if (!is_local_file(url)) {
      unseen.push_back(url);
      continue;
    }
    Status status =
        failed ? check_movie_length(local_path(url), result.progress.movie_us, kEncodersHoldBackUs)
               : check_movie_file(local_path(url));
    if (!status.ok())
      faults.push_back(url + " was not finished" + reason + "; " + status.sentence());
  }
  if (failed && faults.empty()) {
    std::string name = urls.size() == 1     ? urls.front()
                       : unseen.size() == 1 ? unseen.front()
                                            : "one of the outputs";
    faults.push_back(name + " failed" + reason);
  }
  return faults;
}

std::vector<std::string> opening_faults(const std::vector<std::string>& urls,
                                        const RecordingResult& result, bool of_packets) {
  std::vector<std::string> faults;
  std::string hint = of_packets ? "; some encoded pictures must come before they are known" : "";
  // Packets may have gone to it already, unseen: the text tells.
  std::string what = of_packets ? " failed: " : " could not be opened: ";
  for (const Failure& failure : result.failures) {
    faults.push_back(failed_name(urls, failure) + what + failure.text);
  }
  if (faults.empty()) faults.emplace_back("stopped before the outputs were open" + hint);
  return faults;
}

}  // namespace

std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result, bool of_packets) {
  if (!result.opened) return opening_faults(urls, result, of_packets);
  if (result.pieces == 0 && !result.stopped_by_user && result.failures.empty()) {
    return {"the source brought nothing to record"};
  }
  if (!of_packets) return find_faults(urls, result);
  std::vector<std::string> faults = find_cut_outputs(urls, result);
  if (faults.empty() && !result.refusal.empty()) faults.push_back(result.refusal);
  return faults;
}

}  // namespace zeva_tool
