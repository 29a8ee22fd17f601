#include "status_line.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "output_url.h"
#include "zeva/record.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr int64_t kTerminalIntervalUs = 200000;
constexpr int64_t kPlainIntervalUs = 5000000;
constexpr int64_t kRateWindowUs = 1000000;

template <typename... Values>
std::string formatted(const char* format, Values... values) {
  char buffer[128];
  snprintf(buffer, sizeof buffer, format, values...);
  return buffer;
}

std::string movie_time(int64_t us) {
  int64_t tenths = us / 100000;
  return formatted("%02d:%02d:%02d.%d", static_cast<int>(tenths / 36000),
                   static_cast<int>(tenths / 600 % 60), static_cast<int>(tenths / 10 % 60),
                   static_cast<int>(tenths % 10));
}

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

size_t column_count(const std::string& text) {
  size_t count = 0;
  for (char c : text) count += !is_continuation(c);
  return count;
}

void cut_to_columns(std::string& text, size_t columns) {
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (!is_continuation(text[i]) && count++ == columns) {
      text.resize(i);
      return;
    }
  }
}

}  // namespace

StatusLine::StatusLine(const Terminal& the_terminal, std::vector<std::string> urls)
    : terminal(the_terminal), outputs(std::move(urls)) {}

int64_t StatusLine::interval_us() const {
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
  std::string line = text(progress);
  if (!terminal.console_is_terminal()) {
    fprintf(terminal.console(), "%s\n", line.c_str());
  } else {
    // One column stays free: a full line would move the cursor on to the next one.
    cut_to_columns(line, static_cast<size_t>(terminal.console_width() - 1));
    size_t columns = column_count(line);
    std::string rest(drawn_columns > columns ? drawn_columns - columns : 0, ' ');
    fprintf(terminal.console(), "\r%s%s", line.c_str(), rest.c_str());
    drawn_columns = columns;
  }
  fflush(terminal.console());
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
  std::string line = movie_time(progress.movie_us);
  if (progress.paused) line += "  paused";
  if (progress.has_pictures) {
    line += formatted("  %lld frames  %.1f fps  %lld dropped",
                      static_cast<long long>(progress.pictures), pictures_per_second,
                      static_cast<long long>(progress.dropped));
  }
  if (progress.failures > 0) line += formatted("  %zu failed", progress.failures);
  return line + output_states();
}

std::string StatusLine::output_states() const {
  std::string states;
  for (const std::string& url : outputs) {
    if (!is_local_file(url)) {
      states += "  " + url.substr(0, url.find("://")) + " sending";
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

void StatusLine::message(const std::string& text) {
  clear();
  fprintf(terminal.console(), "zeva: %s\n", text.c_str());
  fflush(terminal.console());
}

void StatusLine::clear() {
  if (drawn_columns == 0) return;
  fprintf(terminal.console(), "\r%s\r", std::string(drawn_columns, ' ').c_str());
  fflush(terminal.console());
  drawn_columns = 0;
}

}  // namespace zeva_tool
