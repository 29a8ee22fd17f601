#include "video_slot.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "avc.h"
#include "zeva/status.h"

namespace zeva {
namespace {

constexpr size_t kMaxSetsBytes = size_t{1} << 16;
constexpr uint8_t kStartCode[] = {0, 0, 0, 1};

bool has_unit(const uint8_t* data, size_t size_bytes, int type) {
  for (const NalUnit& unit : split_byte_stream(data, size_bytes)) {
    if (unit.type() == type) return true;
  }
  return false;
}

bool is_parameter_set(const NalUnit& unit) {
  return unit.type() == kNalSps || unit.type() == kNalPps || unit.type() == kNalSpsExtension ||
         unit.type() == kNalSubsetSps;
}

}  // namespace

void VideoSlot::unpack(const AVPacket& packet, const PacketTimes& times) {
  const std::vector<Picture> pictures =
      parser.is_valid() ? parser.split(packet) : std::vector<Picture>();
  if (pictures.empty()) return refuse(packet, "no picture");
  bool first = true;
  for (const Picture& picture : pictures) {
    if (stream() == nullptr) {
      begin(packet, picture, times);
    } else if (first) {
      give_out({packet, picture.data, picture.size_bytes, picture.key}, times);
    } else {
      give_out_behind({packet, picture.data, picture.size_bytes, picture.key}, times);
    }
    first = false;
  }
}

// The host's own packet is given out, unless sets that came earlier have to go in front of it.
void VideoSlot::begin(const AVPacket& packet, const Picture& picture, const PacketTimes& times) {
  if (!picture.key) return leave_out(picture);
  const bool complete = has_unit(picture.data, picture.size_bytes, kNalSps) &&
                        has_unit(picture.data, picture.size_bytes, kNalPps);
  const PacketPtr joined = complete ? nullptr : with_sets(picture);
  const Part part = joined != nullptr
                        ? Part{*joined, joined->data, static_cast<size_t>(joined->size), true}
                        : Part{packet, picture.data, picture.size_bytes, true};
  if (!learn(part.data, part.size_bytes)) {
    leave_out(picture);
    return refuse(packet, "a key picture that cannot be decoded");
  }
  if (left_out > 0) {
    tell(kZevaStatusPacketsLeftOut, std::to_string(left_out) + " packets of '" + name() +
                                        "' before its first key picture are left out");
  }
  give_out(part, times);
}

// Its parameter sets may be all that the key picture has.
void VideoSlot::leave_out(const Picture& picture) {
  ++left_out;
  for (const NalUnit& unit : split_byte_stream(picture.data, picture.size_bytes)) {
    if (!is_parameter_set(unit)) continue;
    if (unit.type() == kNalSps || sets.size() + unit.size_bytes > kMaxSetsBytes) sets.clear();
    sets.insert(sets.end(), std::begin(kStartCode), std::end(kStartCode));
    sets.insert(sets.end(), unit.data, unit.data + unit.size_bytes);
  }
}

// Null without memory.
PacketPtr VideoSlot::with_sets(const Picture& picture) const {
  PacketPtr joined(av_packet_alloc());
  const size_t size_bytes = sets.size() + picture.size_bytes;
  if (size_bytes > INT32_MAX / 2) return nullptr;
  if (joined == nullptr || av_new_packet(joined.get(), static_cast<int>(size_bytes)) < 0) {
    return nullptr;
  }
  std::copy(sets.begin(), sets.end(), joined->data);
  std::copy_n(picture.data, picture.size_bytes, joined->data + sets.size());
  return joined;
}

}  // namespace zeva
