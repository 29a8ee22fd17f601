#include "status_line.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "answers.h"
#include "output_url.h"
#include "progress_json.h"
#include "text_format.h"
#include "zeva/record.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int64_t kTerminalIntervalUs = 200000;
constexpr int64_t kPlainIntervalUs = 5000000;
constexpr int64_t kJsonIntervalUs = 1000000;
constexpr int64_t kRateWindowUs = 1000000;

std::string stream_state(const ZevaOutputState& state) {
  switch (state.phase) {
    case kZevaOutputOpening:
      return " waiting";
    case kZevaOutputDropping:
      return formatted(" dropping, %lld lost", static_cast<long long>(state.pictures_dropped));
    case kZevaOutputReconnecting:
      return " reconnecting";
    case kZevaOutputGivenUp:
      return " given up";
    default:
      return formatted(" %.1f Mbit/s", static_cast<double>(state.bits_per_second) / 1e6);
  }
}

}  // namespace

StatusLine::StatusLine(const Terminal& the_terminal, std::vector<std::string> urls, bool as_json)
    : terminal(the_terminal), line(the_terminal), outputs(std::move(urls)), json(as_json) {}

int64_t StatusLine::interval_us() const {
  if (json) return kJsonIntervalUs;
  return terminal.console_is_terminal() ? kTerminalIntervalUs : kPlainIntervalUs;
}

void StatusLine::update(const Progress& progress) {
  int64_t now_us = ZEVA_current_sys_usec();
  if (shown_us == 0) shown_us = rate_from_us = now_us;
  measure_rate(progress, now_us);
  bool changed = progress.paused != was_paused;
  if (!changed && now_us - shown_us < interval_us()) return;
  shown_us = now_us;
  was_paused = progress.paused;
  if (json) {
    answer(terminal, json_line(progress_json(progress, outputs)));
  } else {
    line.draw(text(progress));
  }
}

void StatusLine::finish(const Progress& progress, int exit_status) {
  if (!json) return;
  auto last = progress_json(progress, outputs);
  last["exit_status"] = exit_status;
  answer(terminal, json_line(last));
}

void StatusLine::measure_rate(const Progress& progress, int64_t now_us) {
  int64_t window_us = now_us - rate_from_us;
  if (window_us <= 0 || (window_us < kRateWindowUs && rate_measured)) return;
  pictures_per_second = static_cast<double>(progress.pictures - rate_from_pictures) * 1e6 /
                        static_cast<double>(window_us);
  if (window_us < kRateWindowUs) return;  // a first guess
  rate_measured = true;
  rate_from_us = now_us;
  rate_from_pictures = progress.pictures;
}

std::string StatusLine::text(const Progress& progress) const {
  std::string shown = movie_time(progress.movie_us);
  if (progress.paused) shown += "  paused";
  if (progress.has_pictures) {
    shown += formatted("  %lld frames  %.1f fps  %lld dropped",
                       static_cast<long long>(progress.pictures), pictures_per_second,
                       static_cast<long long>(progress.dropped));
  }
  if (progress.failures > 0) shown += formatted("  %zu failed", progress.failures);
  return shown + output_states(progress);
}

std::string StatusLine::output_states(const Progress& progress) const {
  std::string states;
  for (size_t i = 0; i < outputs.size(); ++i) {
    const std::string& url = outputs[i];
    if (!is_local_file(url)) {
      states += "  " + url.substr(0, url.find("://"));
      states += i < progress.outputs.size() ? stream_state(progress.outputs[i]) : " sending";
      continue;
    }
    std::error_code error;
    fs::path path = fs::u8path(local_path(url));
    uintmax_t size = fs::file_size(path, error);
    states += "  " + path.filename().u8string() +
              (error ? std::string(" -") : formatted(" %.1f MB", static_cast<double>(size) / 1e6));
  }
  return states;
}

}  // namespace zeva_tool
