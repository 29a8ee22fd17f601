// A host's options, kept after the host has freed its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zeva/options.h"

namespace zeva {

// The fields of ZevaOptions with their defaults. Read only after construction.
struct Options {
  Options() = default;
  // Reads the fields that `given` holds whole; null gives the defaults.
  explicit Options(const ZevaOptions* given);

  // A sentence that names the field when a value cannot be; empty for none.
  std::string fault() const;

  bool has_rate() const { return rate_den != 0; }

  int32_t rate_num = 0;
  int32_t rate_den = 0;
  bool variable_rate = false;
  int32_t channels = 0;
  int32_t rotation_deg = 0;
  bool common_start = false;
  std::string video_codec;
  std::string audio_codec;
  std::string encoder_options;
  int32_t source_matrix = 0;
  int32_t source_range = 0;
  int32_t stream_bitrate_floor = 0;
  int32_t stream_bitrate = 0;
  int32_t stream_width = 0;
  int32_t stream_height = 0;

  // Of output number `output`; all defaults where the host gave none.
  ZevaOutputPolicy policy(size_t output) const {
    return output < policies.size() ? policies[output] : ZevaOutputPolicy{};
  }

 private:
  std::vector<ZevaOutputPolicy> policies;
  std::string record_fault;  // found while the host's record was still there
};

}  // namespace zeva
