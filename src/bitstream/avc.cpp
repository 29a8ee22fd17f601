#include "avc.h"

#include <algorithm>
#include <cstring>

namespace zeva {
namespace {

constexpr size_t kMinSpsBytes = 4;
constexpr size_t kMaxParameterSetBytes = 0xFFFF;
constexpr int kStartCodeBytes = 3;

// The first byte of the next start code, or `end`. Looks for its last byte: the C library does that
// many bytes at once, and in a coded picture one byte of some hundreds is that.
const uint8_t* find_start_code(const uint8_t* from, const uint8_t* end) {
  if (end - from < kStartCodeBytes) return end;
  for (const uint8_t* at = from + 2; at != end; ++at) {
    at = static_cast<const uint8_t*>(memchr(at, 1, static_cast<size_t>(end - at)));
    if (at == nullptr) return end;
    if (at[-1] == 0 && at[-2] == 0) return at - 2;
  }
  return end;
}

// The part of a unit in its access unit (ISO/IEC 14496-10, 7.4.1.2.3).
enum class UnitRole {
  kNone,            // of no meaning here, or too short to tell
  kFirstSlice,      // begins a picture
  kFurtherSlice,    // belongs to the picture before it
  kBeforePictures,  // behind a picture it begins the next access unit
  kAnywhere,        // the end of a sequence, filler
};

UnitRole role_of(NalUnit unit) {
  switch (unit.type()) {
    case 1:
    case 2:
    case 5:
      // first_mb_in_slice is an Exp-Golomb number: 0 is a single 1 bit.
      if (unit.size_bytes < 2) return UnitRole::kNone;
      return (unit.data[1] & 0x80) != 0 ? UnitRole::kFirstSlice : UnitRole::kFurtherSlice;
    case 3:
    case 4:
    case 19:
    case 20:
    case 21:
      return UnitRole::kFurtherSlice;
    case 10:
    case 11:
    case 12:
      return UnitRole::kAnywhere;
    default:
      return unit.size_bytes > 0 ? UnitRole::kBeforePictures : UnitRole::kNone;
  }
}

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
  const uint8_t* const stream_end = stream + size_bytes;
  std::vector<NalUnit> units;
  for (const uint8_t* begin = find_start_code(stream, stream_end); begin != stream_end;) {
    begin += kStartCodeBytes;
    const uint8_t* const next = find_start_code(begin, stream_end);
    const uint8_t* end = next;
    while (end != begin && end[-1] == 0) --end;
    units.push_back({begin, static_cast<size_t>(end - begin)});
    begin = next;
  }
  return units;
}

// A unit that may only stand in front of pictures ends the access unit before it, unless a further
// slice follows: units that accompany slices (SVC, MVC) have such types too. So the place of the
// first one is only a candidate until the next slice tells.
std::vector<AccessUnitPart> split_access_units(const uint8_t* stream, size_t size_bytes) {
  std::vector<AccessUnitPart> parts;
  AccessUnitPart part{stream};
  const uint8_t* candidate = nullptr;
  const uint8_t* unit_begin = stream;  // behind the unit before
  bool any = false;
  const auto end_part = [&](const uint8_t* at) {
    part.size_bytes = static_cast<size_t>(at - part.data);
    if (part.size_bytes > 0) parts.push_back(part);
    part = {at};
    candidate = nullptr;
  };
  for (const NalUnit& unit : split_byte_stream(stream, size_bytes)) {
    const UnitRole role = role_of(unit);
    any = any || role != UnitRole::kNone;
    if (role == UnitRole::kBeforePictures && part.has_picture && candidate == nullptr) {
      candidate = unit_begin;
    } else if (role == UnitRole::kFirstSlice) {
      if (part.has_picture) end_part(candidate != nullptr ? candidate : unit_begin);
      part.has_picture = true;
    } else if (role == UnitRole::kFurtherSlice) {
      part.continues = part.continues || !part.has_picture;
      part.has_picture = true;
      candidate = nullptr;
    }
    unit_begin = unit.data + unit.size_bytes;
  }
  if (!any) return {};
  if (candidate != nullptr) end_part(candidate);
  end_part(stream + size_bytes);
  return parts;
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
