#include "output_policy.h"

#include <algorithm>

namespace zeva {
namespace {

OutputPolicy::WhenFull choose(int32_t host, OutputPolicy::WhenFull otherwise) {
  switch (host) {
    case kZevaFullWait:
      return OutputPolicy::WhenFull::kWait;
    case kZevaFullDrop:
      return OutputPolicy::WhenFull::kDrop;
    case kZevaFullFail:
      return OutputPolicy::WhenFull::kFail;
    default:
      return otherwise;
  }
}

}  // namespace

OutputPolicy::OutputPolicy(const Defaults& defaults, const ZevaOutputPolicy& host, bool live)
    : when_full(choose(host.when_full, live ? defaults.stream_full : defaults.file_full)),
      limits(live ? defaults.stream_limits : defaults.file_limits),
      interleave_allowance(defaults.interleave_allowance),
      live(live),
      required(host.required == kZevaYes),
      optional(host.required == kZevaNo),
      keep_free_bytes(host.keep_free_bytes),
      trailer_after_error(defaults.trailer_after_error) {
  if (host.keep_us > 0 || host.keep_bytes > 0) {
    limits = {};
    interleave_allowance = 0;
    if (host.keep_us > 0) limits.us = host.keep_us;
    if (host.keep_bytes > 0) limits.bytes = host.keep_bytes;
  }
  if (!live) return;
  reconnect_first_us = host.reconnect_first_us;
  reconnect_longest_us = std::max(host.reconnect_longest_us, reconnect_first_us);
  reconnect_total_us = host.reconnect_total_us;
}

}  // namespace zeva
