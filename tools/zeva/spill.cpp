#include "spill.h"

#include <filesystem>
#include <system_error>

#include "output_check.h"
#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int64_t kOpeningPollUs = 10000;

bool has_ended(const ZevaOutputState& state) {
  return state.phase == kZevaOutputFinished || state.phase == kZevaOutputGivenUp;
}

}  // namespace

bool Spill::is_wanted(const std::vector<std::string>& urls,
                      const std::vector<ZevaOutputState>& states) {
  if (!is_free()) return false;
  for (size_t i = 0; i < urls.size() && i < states.size(); ++i) {
    if (!is_local_file(urls[i]) || !has_ended(states[i])) continue;
    ended_url = urls[i];
    return true;
  }
  return false;
}

std::string Spill::free_name(const std::string& url) const {
  const fs::path name = fs::u8path(local_path(url)).filename();
  fs::path path = fs::u8path(folder) / name;
  std::error_code error;
  for (int number = 2; fs::exists(path, error); ++number) {
    path.replace_filename(name.stem().u8string() + "-" + std::to_string(number) +
                          name.extension().u8string());
  }
  return path.u8string();
}

void Spill::begin(int64_t stamp_us, Terminal& terminal, StatusLine& line) {
  second_path = free_name(ended_url);
  from_us = stamp_us;
  recording = make(second_path);
  refusal = recording->prepare().sentence();
  if (refusal.empty()) {
    recording->start(inbox);
    while (!inbox.opening_decided() && !Terminal::stop_requested()) terminal.wait(kOpeningPollUs);
    RecordingStreams streams;
    running = inbox.opened() && recording->begin(streams, line);
  }
  line.message(running ? ended_url + " has ended: the recording goes on in " + second_path
                       : fault());
}

bool Spill::write(Source& source, int64_t stamp_us) {
  return is_running() && source.write(recording->handle(), stamp_us - from_us);
}

void Spill::stop() {
  if (recording == nullptr) return;
  recording->stop();
  if (running) refusal = check_movie_file(second_path).sentence();
}

std::string Spill::fault() const {
  if (second_path.empty()) return {};
  const std::vector<Report> failures = inbox.failures();
  const std::string why = failures.empty() ? refusal : failures.front().text;
  return why.empty() ? "" : second_path + " failed: " + why;
}

}  // namespace zeva_tool
