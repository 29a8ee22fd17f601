// An output's behaviour when its disk or server cannot keep up, as its thread needs it.
#pragma once

#include <cstdint>

#include "packetqueue.h"
#include "zeva/outputs.h"

namespace zeva {

struct OutputPolicy {
  enum class WhenFull { kWait, kDrop, kFail };

  // Of one interface: what holds where the host's policy says nothing.
  struct Defaults {
    WhenFull file_full = WhenFull::kWait;
    WhenFull stream_full = WhenFull::kWait;
    PacketQueue::Limits file_limits;
    PacketQueue::Limits stream_limits;
    // More packets while packets wait to be interleaved.
    uint32_t interleave_allowance = 0;
    bool trailer_after_error = false;
  };

  OutputPolicy() = default;
  // `live` is a stream's.
  OutputPolicy(const Defaults& defaults, const ZevaOutputPolicy& host, bool live);

  bool reconnects() const { return reconnect_first_us > 0; }

  WhenFull when_full = WhenFull::kWait;
  PacketQueue::Limits limits;
  uint32_t interleave_allowance = 0;
  bool live = false;
  bool required = false;  // by the host's word
  bool optional = false;  // likewise
  int64_t reconnect_first_us = 0;
  int64_t reconnect_longest_us = 0;
  int64_t reconnect_total_us = 0;  // negative: for ever
  int64_t keep_free_bytes = 0;
  // Also after a write error the trailer is tried, since what was written before is to be a movie.
  // Without it a movie is finished only when the error left room for the trailer.
  bool trailer_after_error = false;
};

}  // namespace zeva
