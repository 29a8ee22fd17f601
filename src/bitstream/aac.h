// AAC as streams and files announce it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zeva {

// The index of a sampling rate (ISO/IEC 14496-3, table 1.18, which ADTS shares). A rate that has
// none of its own is announced as 44100 Hz.
int aac_rate_index(int sample_rate);

inline constexpr size_t kAdtsHeaderBytes = 7;

// The header that makes an AAC packet self-contained (ISO/IEC 13818-7, adts_frame): MPEG-4, no CRC,
// one raw data block. `profile` is the audio object type less one.
std::array<uint8_t, kAdtsHeaderBytes> adts_header(int profile, int sample_rate, int channels,
                                                  int payload_bytes);

// The AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) of AAC LC.
std::vector<uint8_t> aac_lc_configuration(int rate_index, int channels);

}  // namespace zeva
