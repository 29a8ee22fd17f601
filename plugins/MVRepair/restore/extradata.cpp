#include "extradata.h"

#include <cstdio>

#include "aac.h"
#include "avc.h"
#include "ffmpeg.h"

namespace zeva {
namespace {

// The first unit of the type that a configuration record can hold.
NalUnit first_of_type(const std::vector<NalUnit>& units, int type, bool (*usable)(NalUnit)) {
  for (const NalUnit& unit : units) {
    if (unit.type() == type && usable(unit)) return unit;
  }
  return {};
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
  const std::vector<NalUnit> units = split_byte_stream(byte_stream.data(), byte_stream.size());
  const NalUnit sps = first_of_type(units, kNalSps, is_avc_sps);
  const NalUnit pps = first_of_type(units, kNalPps, is_avc_pps);
  if (sps.size_bytes == 0 || pps.size_bytes == 0) return {};
  return avc_configuration_record(sps, pps);
}

Bytes aac_configuration(int sample_rate, int channels) {
  // The lowest rate of the table counts as unknown here, as in every movie repaired so far.
  constexpr int kLowestRate = 8000;
  return aac_lc_configuration(aac_rate_index(sample_rate >= kLowestRate ? sample_rate : 0),
                              channels);
}

}  // namespace zeva
