// The pictures of a packet recording.
#pragma once

#include <cstdint>
#include <vector>

#include "input_slot.h"
#include "picture_parser.h"

namespace zeva {

// Begins with the first key picture whose parameter sets are there: in front of it, or in an
// earlier packet. Used by the worker.
class VideoSlot : public InputSlot {
 public:
  VideoSlot(InputQueue* queue, Tell tell) : InputSlot("h264", queue, std::move(tell)) {}

 protected:
  void unpack(const AVPacket& packet, const PacketTimes& times) override;

 private:
  void begin(const AVPacket& packet, const Picture& picture, const PacketTimes& times);
  void leave_out(const Picture& picture);
  PacketPtr with_sets(const Picture& picture) const;

  PictureParser parser;
  std::vector<uint8_t> sets;  // of the pictures that are left out
  int64_t left_out = 0;       // before the first key picture
};

}  // namespace zeva
