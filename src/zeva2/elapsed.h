// Time since a moment.
#pragma once

#include <chrono>
#include <cstdint>

namespace zeva {

class Elapsed {
 public:
  int64_t ms() const {
    using std::chrono::milliseconds;
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start = Clock::now();
};

}  // namespace zeva
