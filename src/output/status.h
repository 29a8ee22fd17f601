// The outcome of whatever can fail in the library.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace zeva {

// `code` is 0, an FFmpeg error code, or one of the values that a host is told; `message` is the
// text that goes with it, in the words a host reads.
struct [[nodiscard]] Status {
  bool ok = true;
  int32_t code = 0;
  std::string message;

  static Status success() { return {}; }
  static Status failure(int32_t code, std::string message) {
    return {false, code, std::move(message)};
  }
};

}  // namespace zeva
