#include "progress_bar.h"

#include <algorithm>
#include <utility>

#include "text_format.h"
#include "zeva/record.h"

namespace zeva_tool {
namespace {

constexpr int64_t kTerminalIntervalUs = 100000;
constexpr int64_t kPlainIntervalUs = 5000000;
constexpr int kBarColumns = 30;
// Before this much time and work, the time left would be a wild guess.
constexpr int64_t kGuessFromUs = 300000;
constexpr double kGuessFromShare = 0.01;

std::string time_left(double share, int64_t elapsed_us) {
  double left_s = static_cast<double>(elapsed_us) / 1e6 * (1 - share) / share;
  int seconds = static_cast<int>(std::min(left_s + 0.5, 359999.0));
  if (seconds < 60) return formatted("%d s left", seconds);
  if (seconds < 3600) return formatted("%d:%02d min left", seconds / 60, seconds % 60);
  return formatted("%d:%02d h left", seconds / 3600, seconds / 60 % 60);
}

}  // namespace

ProgressBar::ProgressBar(const Terminal& the_terminal, std::string the_what)
    : terminal(the_terminal),
      line(the_terminal),
      what(std::move(the_what)),
      begun_us(ZEVA_current_sys_usec()),
      shown_us(begun_us) {}

void ProgressBar::update(double share) {
  int64_t now_us = ZEVA_current_sys_usec();
  int64_t interval_us = terminal.console_is_terminal() ? kTerminalIntervalUs : kPlainIntervalUs;
  if (now_us - shown_us < interval_us) return;
  shown_us = now_us;
  line.draw(text(std::clamp(share, 0.0, 1.0), now_us - begun_us));
}

std::string ProgressBar::text(double share, int64_t elapsed_us) const {
  std::string shown = what + "  ";
  if (terminal.console_is_terminal()) {
    int done = static_cast<int>(share * kBarColumns);
    shown += "[" + std::string(done, '#') + std::string(kBarColumns - done, '.') + "]  ";
  }
  shown += formatted("%3d %%", static_cast<int>(share * 100));
  if (elapsed_us >= kGuessFromUs && share >= kGuessFromShare) {
    shown += "  " + time_left(share, elapsed_us);
  }
  return shown;
}

}  // namespace zeva_tool
