// Time since a moment.
#pragma once

#include <cstdint>

#include "clock.h"

namespace zeva {

class Elapsed {
 public:
  int64_t ms() const { return (steady_us() - start_us) / 1000; }

 private:
  int64_t start_us = steady_us();
};

}  // namespace zeva
