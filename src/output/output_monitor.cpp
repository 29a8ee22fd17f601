#include "output_monitor.h"

#include <algorithm>
#include <utility>

#include "clock.h"
#include "logger.h"
#include "zeva/status.h"

namespace zeva {
namespace {

constexpr int64_t kBetweenReportsUs = 1000000;
// A stream that does not keep up drops every few seconds.
constexpr int64_t kCalmAfterDropUs = 5000000;
// A server that is there answers sooner.
constexpr int64_t kPatienceUs = 1000000;

}  // namespace

OutputMonitor::OutputMonitor(std::string url, Report report, bool waits)
    : url(std::move(url)), report(std::move(report)), waits(waits) {
  now = {kZevaOutputOpening, steady_us(), {}};
  // An output that is opened before the recording begins is live when the host hears of the start.
  if (!waits) told = kZevaOutputLive;
  pending = waits;
}

void OutputMonitor::enter(int32_t phase, const std::string& why) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (phase == now.phase && why == now.why) return;
  if (now.phase == kZevaOutputGivenUp || now.phase == kZevaOutputFinished) return;
  const bool same = phase == now.phase;
  now = {phase, same ? now.since_us : steady_us(), why};
  was_lost = was_lost || phase == kZevaOutputReconnecting;
  pending = is_worth_telling_locked();
}

void OutputMonitor::enter_untold(int32_t phase) {
  const std::lock_guard<std::mutex> lock(mutex);
  now = {phase, steady_us(), {}};
  told = phase;
  pending = false;
}

int32_t OutputMonitor::phase() const {
  const std::lock_guard<std::mutex> lock(mutex);
  return now.phase;
}

bool OutputMonitor::is_worth_telling_locked() const {
  const bool back = now.phase == kZevaOutputLive && was_lost;
  return report && (now.phase != told || back) && now.phase != kZevaOutputFinished;
}

int64_t OutputMonitor::due_us_locked() const {
  int64_t due = told_us + kBetweenReportsUs;
  if (told_us == 0 || now.phase == kZevaOutputGivenUp) due = 0;
  if (now.phase == kZevaOutputOpening && now.why.empty()) due = now.since_us + kPatienceUs;
  if (now.phase == kZevaOutputLive && told == kZevaOutputDropping) {
    due = std::max(due, now.since_us + kCalmAfterDropUs);
  }
  return due;
}

int32_t OutputMonitor::code_locked() const {
  switch (now.phase) {
    case kZevaOutputOpening:
      return kZevaStatusStreamWaiting;
    case kZevaOutputDropping:
      return kZevaStatusStreamDropping;
    case kZevaOutputReconnecting:
      return kZevaStatusStreamReconnecting;
    case kZevaOutputGivenUp:
      return kZevaStatusOutputGivenUp;
    default:
      return was_lost ? kZevaStatusStreamBack : kZevaStatusStreamLive;
  }
}

std::string OutputMonitor::text_locked() const {
  const char* text = "is live";
  if (now.phase == kZevaOutputOpening) text = "is waited for";
  if (now.phase == kZevaOutputDropping) text = "does not keep up: pictures are dropped";
  if (now.phase == kZevaOutputReconnecting) text = "is lost and tried again";
  if (now.phase == kZevaOutputGivenUp) text = "is given up";
  if (code_locked() == kZevaStatusStreamBack) text = "is back";
  return "'" + url + "' " + text + (now.why.empty() ? "" : ": " + now.why);
}

int OutputMonitor::tell_due() {
  if (!pending) return -1;
  // One thread tells; another one comes back to what is left. The callback may lead here again.
  if (telling.test_and_set()) return static_cast<int>(kBetweenReportsUs / 1000);
  int wait_ms = -1;
  int32_t code = 0;
  std::string text;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    const int64_t time = steady_us();
    if (is_worth_telling_locked()) {
      const int64_t due = due_us_locked();
      if (due > time) {
        wait_ms = static_cast<int>((due - time) / 1000) + 1;
      } else {
        code = code_locked();
        text = text_locked();
        told = now.phase;
        told_us = time;
        was_lost = was_lost && told != kZevaOutputLive;
      }
    }
    if (wait_ms < 0) pending = false;
  }
  if (code != 0) {
    ZEVA_LOG(kLogWarning, "[%d] %s", code, text.c_str());
    report(code, text);
  }
  telling.clear();
  return wait_ms;
}

void OutputMonitor::note_error(int32_t code) {
  const std::lock_guard<std::mutex> lock(mutex);
  error_code = code;
  error_us = steady_us();
}

// ---- counting

void OutputMonitor::count_written(int64_t bytes, int64_t end_us) {
  ++packets_written;
  bytes_written += bytes;
  written_us = std::max(written_us.load(), end_us);
  const std::lock_guard<std::mutex> lock(mutex);
  count_rate(bytes);
}

void OutputMonitor::count_rate(int64_t bytes) {
  const int64_t slot = steady_us() / kSlotUs;
  for (int64_t i = std::max(newest_slot + 1, slot - kSlots + 1); i <= slot; ++i) {
    slots[static_cast<size_t>(i % kSlots)] = 0;
  }
  newest_slot = slot;
  slots[static_cast<size_t>(slot % kSlots)] += bytes;
}

void OutputMonitor::count_dropped(bool picture) {
  ++packets_dropped;
  if (picture) ++pictures_dropped;
}

void OutputMonitor::fill(ZevaOutputState& state) const {
  state.packets_written = packets_written;
  state.bytes_written = bytes_written;
  state.packets_dropped = packets_dropped;
  state.pictures_dropped = pictures_dropped;
  state.written_us = written_us;
  state.disk_free_bytes = disk_free_bytes;
  state.reconnects = reconnects;
  const std::lock_guard<std::mutex> lock(mutex);
  const int64_t time = steady_us();
  state.phase = now.phase;
  state.last_error = error_code;
  state.last_error_us = error_us < 0 ? -1 : time - error_us;
  const int64_t slot = time / kSlotUs;
  for (int64_t i = std::max<int64_t>(slot - kSlots + 1, 0); i <= newest_slot; ++i) {
    state.bits_per_second += slots[static_cast<size_t>(i % kSlots)] * 8;
  }
  state.bits_per_second = state.bits_per_second * 1000000 / (kSlots * kSlotUs);
}

}  // namespace zeva
