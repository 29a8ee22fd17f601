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

// A frame of ADTS as its header describes it.
struct AdtsFrame {
  const uint8_t* data = nullptr;  // of the header
  size_t size_bytes = 0;          // header included
  int sample_rate = 0;            // Hz
  int samples = 0;                // a channel
  bool tells_channels = false;    // in the header, or at the beginning of its payload
};

// The frame at the beginning of `data` (ISO/IEC 13818-7, 6.2). `size_bytes` is 0 when there is none
// that can be decoded: no syncword, a layer, a rate that does not exist, no sound in it, more
// blocks than muxers take, or it is longer than `size_bytes`. The frame points into the data.
AdtsFrame parse_adts(const uint8_t* data, size_t size_bytes);

// The AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) of AAC LC.
std::vector<uint8_t> aac_lc_configuration(int rate_index, int channels);

}  // namespace zeva
