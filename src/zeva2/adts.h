// The header that makes AAC packets self-contained (ISO/IEC 13818-7, adts_frame).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zeva {

inline constexpr int kAdtsHeaderBytes = 7;

// A rate that has no index of its own is announced as 44100 Hz.
inline uint8_t adts_sampling_index(int sample_rate) {
  constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                            22050, 16000, 12000, 11025, 8000,  7350};
  for (size_t i = 0; i < std::size(kRates); ++i) {
    if (kRates[i] == sample_rate) return static_cast<uint8_t>(i);
  }
  return 4;
}

// MPEG-4, no CRC, one raw data block. `profile` is the audio object type less one.
inline std::array<uint8_t, kAdtsHeaderBytes> adts_header(int profile, int sample_rate, int channels,
                                                         int payload_bytes) {
  const auto length = static_cast<uint32_t>(payload_bytes + kAdtsHeaderBytes);
  // Eight channels (7.1) are configuration 7; for others the two numbers are the same.
  const auto configuration = static_cast<uint32_t>(channels < 8 ? channels : 7);
  const auto object = static_cast<uint32_t>(profile) & 3;
  const uint32_t index = adts_sampling_index(sample_rate);
  constexpr uint32_t kFullness = 0x7FF;
  return {0xFF,
          0xF1,
          static_cast<uint8_t>(object << 6 | index << 2 | configuration >> 2),
          static_cast<uint8_t>((configuration & 3) << 6 | (length >> 11 & 3)),
          static_cast<uint8_t>(length >> 3),
          static_cast<uint8_t>((length & 7) << 5 | kFullness >> 6),
          static_cast<uint8_t>((kFullness & 0x3F) << 2)};
}

}  // namespace zeva
