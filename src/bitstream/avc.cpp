#include "avc.h"

#include <algorithm>
#include <iterator>

namespace zeva {
namespace {

constexpr size_t kMinSpsBytes = 4;
constexpr size_t kMaxParameterSetBytes = 0xFFFF;

void append_parameter_set(std::vector<uint8_t>& record, NalUnit set) {
  record.push_back(static_cast<uint8_t>(set.size_bytes >> 8));
  record.push_back(static_cast<uint8_t>(set.size_bytes));
  record.insert(record.end(), set.data, set.data + set.size_bytes);
}

}  // namespace

bool is_avc_sps(NalUnit unit) {
  return unit.data != nullptr && unit.size_bytes >= kMinSpsBytes &&
         unit.size_bytes <= kMaxParameterSetBytes;
}

bool is_avc_pps(NalUnit unit) {
  return unit.data != nullptr && unit.size_bytes >= 1 && unit.size_bytes <= kMaxParameterSetBytes;
}

std::vector<NalUnit> split_byte_stream(const uint8_t* stream, size_t size_bytes) {
  static constexpr uint8_t kStartCode[] = {0, 0, 1};
  const uint8_t* const stream_end = stream + size_bytes;
  const auto next_start_code = [&](const uint8_t* from) {
    return std::search(from, stream_end, std::begin(kStartCode), std::end(kStartCode));
  };
  std::vector<NalUnit> units;
  for (const uint8_t* begin = next_start_code(stream); begin != stream_end;) {
    begin += std::size(kStartCode);
    const uint8_t* const next = next_start_code(begin);
    const uint8_t* end = next;
    while (end != begin && end[-1] == 0) --end;
    units.push_back({begin, static_cast<size_t>(end - begin)});
    begin = next;
  }
  return units;
}

std::vector<uint8_t> avc_configuration_record(NalUnit sps, NalUnit pps) {
  // Version, then profile, constraints and level as the SPS has them, 4-byte lengths, one SPS.
  std::vector<uint8_t> record = {1, sps.data[1], sps.data[2], sps.data[3], 0xFF, 0xE1};
  append_parameter_set(record, sps);
  const bool has_pps = pps.size_bytes > 0;
  record.push_back(has_pps ? 1 : 0);
  if (has_pps) append_parameter_set(record, pps);
  return record;
}

}  // namespace zeva
