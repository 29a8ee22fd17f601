// AAC frames as ADTS streams carry them (ISO/IEC 13818-7), and what movies say about theirs
// (AudioSpecificConfig, ISO/IEC 14496-3).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zeva_tool {

struct AacFormat {
  int profile = 1;         // audio object type - 1; 1 is LC
  int rate_index = 4;      // into the standard's table of sampling rates
  int channel_config = 2;  // 1 to 7

  int sample_rate() const;
};

constexpr size_t kAdtsHeaderBytes = 7;
constexpr int kAacFrameSamples = 1024;
constexpr size_t kMaxAdtsFrameBytes = (1 << 13) - 1;

// From the extradata of a movie's AAC stream; nothing when ADTS cannot express it.
std::optional<AacFormat> parse_audio_config(const uint8_t* data, size_t size);

struct AdtsHeader {
  AacFormat format;
  int samples = 0;  // of the frame, at the header's rate
};

// Of a whole ADTS frame; nothing when it is none.
std::optional<AdtsHeader> parse_adts(const uint8_t* data, size_t size);

std::array<uint8_t, kAdtsHeaderBytes> make_adts(const AacFormat& format, size_t payload_bytes);

}  // namespace zeva_tool
