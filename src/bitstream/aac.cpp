#include "aac.h"

#include <algorithm>
#include <iterator>

namespace zeva {
namespace {

constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                          22050, 16000, 12000, 11025, 8000,  7350};
constexpr int kIndexOf44100 = 4;
constexpr uint32_t kObjectAacLc = 2;
// Syntax elements (ISO/IEC 13818-7, table 25).
constexpr int kElementProgramConfig = 5;
constexpr int kElementEnd = 7;
// Of the buffer: the bit rate varies.
constexpr uint32_t kAdtsFullness = 0x7FF;

uint8_t low_byte(uint32_t bits) { return static_cast<uint8_t>(bits); }

}  // namespace

int aac_rate_index(int sample_rate) {
  const auto* found = std::find(std::begin(kRates), std::end(kRates), sample_rate);
  return found != std::end(kRates) ? static_cast<int>(found - kRates) : kIndexOf44100;
}

std::array<uint8_t, kAdtsHeaderBytes> adts_header(int profile, int sample_rate, int channels,
                                                  int payload_bytes) {
  const auto length = static_cast<uint32_t>(payload_bytes) + uint32_t{kAdtsHeaderBytes};
  // Eight channels (7.1) are configuration 7; for others the two numbers are the same.
  const auto configuration = static_cast<uint32_t>(channels < 8 ? channels : 7);
  const auto object = static_cast<uint32_t>(profile) & 3;
  const auto index = static_cast<uint32_t>(aac_rate_index(sample_rate));
  return {0xFF,
          0xF1,
          low_byte(object << 6 | index << 2 | configuration >> 2),
          low_byte((configuration & 3) << 6 | (length >> 11 & 3)),
          low_byte(length >> 3),
          low_byte((length & 7) << 5 | kAdtsFullness >> 6),
          low_byte((kAdtsFullness & 0x3F) << 2)};
}

AdtsFrame parse_adts(const uint8_t* data, size_t size_bytes) {
  constexpr int kSamplesOfBlock = 1024;
  constexpr size_t kCrcBytes = 2;
  if (size_bytes < kAdtsHeaderBytes || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) return {};
  const bool crc = (data[1] & 1) == 0;
  const size_t rate_index = data[2] >> 2 & 0xF;
  const size_t channels = (data[2] & 1U) << 2 | data[3] >> 6;
  const size_t length = (data[3] & 3U) << 11 | size_t{data[4]} << 3 | data[5] >> 5;
  const int blocks = (data[6] & 3) + 1;
  const size_t header = kAdtsHeaderBytes + (crc ? kCrcBytes : 0);
  if (rate_index >= std::size(kRates) || length <= header || length > size_bytes) return {};
  if (crc && blocks > 1) return {};
  // A block does not begin with its end; a payload that does is another header, or holds no sound.
  const int element = data[header] >> 5;
  if (element == kElementEnd) return {};
  const bool tells_channels = channels != 0 || element == kElementProgramConfig;
  return {data, length, kRates[rate_index], blocks * kSamplesOfBlock, tells_channels};
}

std::vector<uint8_t> aac_lc_configuration(int rate_index, int channels) {
  const uint32_t bits = kObjectAacLc << 11 | (static_cast<uint32_t>(rate_index) & 0xF) << 7 |
                        (static_cast<uint32_t>(channels) & 0xF) << 3;
  return {low_byte(bits >> 8), low_byte(bits)};
}

}  // namespace zeva
