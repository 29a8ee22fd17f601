#include "io_interrupt.h"

#include "clock.h"

namespace zeva {
namespace {

constexpr int64_t kGraceUs = 1500000;

int64_t elapsed_us(int64_t since) {
  return av_rescale(performance_counter() - since, 1000000, performance_frequency());
}

}  // namespace

void IoInterrupt::set_timeout(int timeout_sec) {
  timeout_us = (timeout_sec > 0 ? timeout_sec : 10) * int64_t{1000000};
}

void IoInterrupt::exit() {
  int64_t never = kNever;
  exit_time.compare_exchange_strong(never, performance_counter());
}

void IoInterrupt::begin_operation() { operation_start = performance_counter(); }

AVIOInterruptCB IoInterrupt::callback() { return {should_give_up, this}; }

int IoInterrupt::should_give_up(void* self) {
  const auto& io = *static_cast<IoInterrupt*>(self);
  const int64_t exit = io.exit_time;
  if (exit != kNever && (!io.is_open || elapsed_us(exit) > kGraceUs)) return 1;
  const int64_t start = io.operation_start;
  return start != kNever && elapsed_us(start) > io.timeout_us ? 1 : 0;
}

}  // namespace zeva
