#include "io_interrupt.h"

#include "clock.h"

namespace zeva {
namespace {

constexpr int64_t kGraceUs = 1500000;

int64_t elapsed_us(int64_t since) { return steady_us() - since; }

}  // namespace

void IoInterrupt::set_timeout(int timeout_sec) {
  timeout_us = (timeout_sec > 0 ? timeout_sec : 10) * int64_t{1000000};
}

void IoInterrupt::exit() {
  int64_t never = kNever;
  exit_time.compare_exchange_strong(never, steady_us());
}

void IoInterrupt::begin_operation() { operation_start = steady_us(); }

AVIOInterruptCB IoInterrupt::callback() { return {should_give_up, this}; }

int IoInterrupt::result_of_operation(int ffmpeg_result) const {
  return ffmpeg_result >= 0 && gave_up ? AVERROR_EXIT : ffmpeg_result;
}

int IoInterrupt::should_give_up(void* self) {
  auto& io = *static_cast<IoInterrupt*>(self);
  if (!io.must_give_up()) return 0;
  io.gave_up = true;
  return 1;
}

bool IoInterrupt::must_give_up() const {
  if (gave_up) return true;  // also what closes the output afterwards
  const int64_t exit = exit_time;
  const int64_t start = operation_start;
  if (exit != kNever && (!is_open || elapsed_us(exit) > kGraceUs)) return true;
  return start != kNever && elapsed_us(start) > timeout_us;
}

}  // namespace zeva
