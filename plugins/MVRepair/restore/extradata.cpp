#include "extradata.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "ffmpeg.h"

namespace zeva {
namespace {

constexpr int kNalSps = 7;
constexpr int kNalPps = 8;

// The NAL units between start codes. Zero bytes in front of a start code belong to no unit.
std::vector<Bytes> nal_units(const Bytes& stream) {
  static constexpr uint8_t kStartCode[] = {0, 0, 1};
  std::vector<Bytes> units;
  auto begin =
      std::search(stream.begin(), stream.end(), std::begin(kStartCode), std::end(kStartCode));
  while (begin != stream.end()) {
    begin += std::size(kStartCode);
    const auto next =
        std::search(begin, stream.end(), std::begin(kStartCode), std::end(kStartCode));
    auto end = next;
    while (end != begin && end[-1] == 0) --end;
    units.emplace_back(begin, end);
    begin = next;
  }
  return units;
}

Bytes first_of_type(const std::vector<Bytes>& units, int type, size_t min_bytes) {
  for (const Bytes& unit : units) {
    const bool fits =
        unit.size() >= min_bytes && unit.size() <= std::numeric_limits<uint16_t>::max();
    if (fits && (unit[0] & 0x1F) == type) return unit;
  }
  return {};
}

void append_parameter_set(Bytes& out, const Bytes& set) {
  out.push_back(static_cast<uint8_t>(set.size() >> 8));
  out.push_back(static_cast<uint8_t>(set.size()));
  out.insert(out.end(), set.begin(), set.end());
}

}  // namespace

bool base64_decode(const std::string& text, Bytes& out) {
  out.resize(AV_BASE64_DECODE_SIZE(text.size()) + 1);
  const int size = av_base64_decode(out.data(), text.c_str(), static_cast<int>(out.size()));
  out.resize(size > 0 ? static_cast<size_t>(size) : 0);
  return size >= 0;
}

std::string base64_encode(const Bytes& bytes) {
  std::string text(AV_BASE64_SIZE(bytes.size()), '\0');
  const auto room = static_cast<int>(text.size());
  av_base64_encode(text.data(), room, bytes.data(), static_cast<int>(bytes.size()));
  text.pop_back();  // the terminating zero
  return text;
}

std::string hex_list(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    char item[4];
    snprintf(item, sizeof item, "%02x,", byte);
    text += item;
  }
  return text;
}

Bytes avc_configuration(const Bytes& byte_stream) {
  const std::vector<Bytes> units = nal_units(byte_stream);
  const Bytes sps = first_of_type(units, kNalSps, 4);
  const Bytes pps = first_of_type(units, kNalPps, 1);
  if (sps.empty() || pps.empty()) return {};
  // Version, profile, constraints, level, four-byte NAL lengths, one sequence parameter set.
  Bytes record = {1, sps[1], sps[2], sps[3], 0xFF, 0xE1};
  append_parameter_set(record, sps);
  record.push_back(1);
  append_parameter_set(record, pps);
  return record;
}

Bytes aac_configuration(int sample_rate, int channels) {
  static constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000,
                                   24000, 22050, 16000, 12000, 11025, 8000};
  constexpr int kAacLc = 2;
  constexpr int kIndexOf44100 = 4;
  const auto* found = std::find(std::begin(kRates), std::end(kRates), sample_rate);
  const int rate = found != std::end(kRates) ? static_cast<int>(found - kRates) : kIndexOf44100;
  const int bits = kAacLc << 11 | rate << 7 | (channels & 0xF) << 3;
  return {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
}

}  // namespace zeva
