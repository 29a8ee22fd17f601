#include "call_times.h"

#include <algorithm>
#include <numeric>

namespace zeva {

void CallTimes::add(int64_t us) {
  const size_t number = added.load(std::memory_order_relaxed);
  latest[number % kCalls].store(us, std::memory_order_relaxed);
  added.store(number + 1, std::memory_order_release);
}

CallTimes::Summary CallTimes::summary() const {
  const size_t count = std::min(added.load(std::memory_order_acquire), kCalls);
  if (count == 0) return {};
  std::array<int64_t, kCalls> times{};
  const auto end = times.begin() + static_cast<ptrdiff_t>(count);
  std::transform(latest.begin(), latest.begin() + static_cast<ptrdiff_t>(count), times.begin(),
                 [](const auto& time) { return time.load(std::memory_order_relaxed); });
  const auto p99 = times.begin() + static_cast<ptrdiff_t>((count * 99 + 99) / 100 - 1);
  std::nth_element(times.begin(), p99, end);
  return {std::accumulate(times.begin(), end, int64_t{0}) / static_cast<int64_t>(count), *p99};
}

}  // namespace zeva
