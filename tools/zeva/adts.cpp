#include "adts.h"

namespace zeva_tool {
namespace {

constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                          22050, 16000, 12000, 11025, 8000,  7350};
constexpr int kRateCount = sizeof kRates / sizeof *kRates;
constexpr int kObjectSbr = 5;
constexpr int kObjectPs = 29;
constexpr int kMaxAdtsObject = 4;
constexpr int kMaxChannelConfig = 7;

class BitReader {
 public:
  BitReader(const uint8_t* bytes, size_t size) : data(bytes), size_bits(size * 8) {}

  int take(int count) {
    int value = 0;
    for (; count > 0; --count, ++position) {
      int bit = position < size_bits ? data[position / 8] >> (7 - position % 8) & 1 : 0;
      value = value << 1 | bit;
    }
    return value;
  }
  bool overrun() const { return position > size_bits; }

 private:
  const uint8_t* data;
  size_t size_bits;
  size_t position = 0;
};

bool valid(const AacFormat& format) {
  return format.rate_index < kRateCount && format.channel_config >= 1 &&
         format.channel_config <= kMaxChannelConfig;
}

}  // namespace

int AacFormat::sample_rate() const { return kRates[rate_index]; }

std::optional<AacFormat> parse_audio_config(const uint8_t* data, size_t size) {
  BitReader bits(data, size);
  int object = bits.take(5);
  AacFormat format;
  format.rate_index = bits.take(4);
  format.channel_config = bits.take(4);
  // With explicit SBR the core follows; ADTS carries the core and leaves SBR to be discovered.
  if (object == kObjectSbr || object == kObjectPs) {
    bits.take(4);
    object = bits.take(5);
  }
  if (bits.overrun() || object < 1 || object > kMaxAdtsObject) return std::nullopt;
  format.profile = object - 1;
  return valid(format) ? std::optional(format) : std::nullopt;
}

std::optional<AdtsHeader> parse_adts(const uint8_t* data, size_t size) {
  BitReader bits(data, size);
  if (size < kAdtsHeaderBytes || bits.take(12) != 0xFFF) return std::nullopt;
  bits.take(4);  // version, layer, no CRC
  AdtsHeader header;
  header.format.profile = bits.take(2);
  header.format.rate_index = bits.take(4);
  bits.take(1);
  header.format.channel_config = bits.take(3);
  bits.take(4);
  bits.take(13);  // frame length
  bits.take(11);  // buffer fullness
  header.samples = (bits.take(2) + 1) * kAacFrameSamples;
  return header.format.rate_index < kRateCount ? std::optional(header) : std::nullopt;
}

std::array<uint8_t, kAdtsHeaderBytes> make_adts(const AacFormat& format, size_t payload_bytes) {
  auto length = static_cast<unsigned>(payload_bytes + kAdtsHeaderBytes);
  auto byte = [](unsigned value) { return static_cast<uint8_t>(value); };
  auto profile = static_cast<unsigned>(format.profile);
  auto rate = static_cast<unsigned>(format.rate_index);
  auto channels = static_cast<unsigned>(format.channel_config);
  return {0xFF,
          0xF1,  // MPEG-4, no CRC
          byte(profile << 6 | rate << 2 | channels >> 2),
          byte((channels & 3) << 6 | length >> 11),
          byte(length >> 3),
          byte((length & 7) << 5 | 0x1F),  // buffer fullness: variable rate
          0xFC};
}

}  // namespace zeva_tool
