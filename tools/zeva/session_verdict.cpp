#include "session_verdict.h"

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

std::vector<std::string> find_faults(const std::vector<std::string>& urls,
                                     const RecordingResult& result, bool every_failure_reported) {
  std::vector<std::string> faults;
  std::vector<std::string> unseen;
  bool failed = !result.failures.empty() || !result.refusal.empty();
  std::string reason = first_reason(result);
  int64_t tolerance_us = every_failure_reported ? kEncodersHoldBackUs : kPacketsHoldBackUs;
  for (const std::string& url : urls) {
    if (!is_local_file(url)) {
      unseen.push_back(url);
      continue;
    }
    Status status =
        !failed && every_failure_reported
            ? check_movie_file(local_path(url))
            : check_movie_length(local_path(url), result.progress.movie_us, tolerance_us);
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

std::string failed_name(const std::vector<std::string>& urls, const Failure& failure) {
  for (const std::string& url : urls) {
    if (failure.text.find("'" + url + "'") != std::string::npos) return url;
  }
  bool is_main = urls.size() == 1 || failure.code == kMainOutputNotOpened;
  return is_main ? urls.front() : "an output";
}

std::vector<std::string> opening_faults(const std::vector<std::string>& urls,
                                        const RecordingResult& result,
                                        bool every_failure_reported) {
  std::vector<std::string> faults;
  std::string hint =
      every_failure_reported ? "" : "; some encoded pictures must come before they are known";
  for (const Failure& failure : result.failures) {
    faults.push_back(failed_name(urls, failure) + " could not be opened: " + failure.text);
  }
  if (faults.empty()) faults.emplace_back("stopped before the outputs were open" + hint);
  return faults;
}

}  // namespace

std::vector<std::string> recording_faults(const std::vector<std::string>& urls,
                                          const RecordingResult& result,
                                          bool every_failure_reported) {
  if (!result.opened) return opening_faults(urls, result, every_failure_reported);
  if (result.pieces == 0 && !result.stopped_by_user && result.failures.empty()) {
    return {"the source brought nothing to record"};
  }
  return find_faults(urls, result, every_failure_reported);
}

}  // namespace zeva_tool
