// How long calls take: one of them, and the latest ones together.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "clock.h"

namespace zeva {

// Adds its own lifetime to a sum of microseconds.
class Lap {
 public:
  explicit Lap(int64_t& sum_us) : sum_us(sum_us) {}
  ~Lap() { sum_us += steady_us() - begin_us; }
  Lap(const Lap&) = delete;
  Lap& operator=(const Lap&) = delete;

 private:
  int64_t& sum_us;
  const int64_t begin_us = steady_us();
};

// The times of the latest calls. One thread adds at a time, any thread reads; neither ever waits,
// so that a summary made meanwhile may hold one call more or less.
class CallTimes {
 public:
  static constexpr size_t kCalls = 512;

  struct Summary {
    int64_t mean_us = 0;
    int64_t p99_us = 0;  // 99 of 100 calls took no longer
  };

  void add(int64_t us);
  // All zeros before the first call.
  Summary summary() const;

 private:
  std::array<std::atomic<int64_t>, kCalls> latest{};
  std::atomic<size_t> added{0};
};

}  // namespace zeva
