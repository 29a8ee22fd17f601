// The bit rate of an encoder that is at work.
#pragma once

#include <cstdint>
#include <string>

#include "ffmpeg.h"

namespace zeva {

// Bounds the encoder's rate by a buffer of a second, so that no picture needs a network to carry
// much more than `bit_rate`, and so that the rate can be changed later. Before it is open.
void bound_bit_rate(AVCodecContext& enc, int64_t bit_rate);

// Empty when the rate of an encoder that is configured can be changed while it works; else a
// sentence that names the encoder, or the setting of it that forbids it.
std::string fixed_rate_fault(const AVCodecContext& enc);

// Changes it. Used by the thread that encodes, between two pictures.
class VariableBitRate {
 public:
  VariableBitRate() = default;
  // Remembers the bounds that the encoder has.
  explicit VariableBitRate(const AVCodecContext& enc);

  // From the next picture on. In whole kbit/s, which is how libx264 counts, rounded up.
  void set(AVCodecContext& enc, int64_t bit_rate) const;

 private:
  int64_t full_rate = 0;
  int64_t full_bound = 0;
  int full_buffer = 0;
};

}  // namespace zeva
