// The sound of a packet recording.
#pragma once

#include "input_slot.h"

namespace zeva {

// Begins with the first frame that can be decoded. Used by the worker.
class AudioSlot : public InputSlot {
 public:
  AudioSlot(InputQueue* queue, Tell tell) : InputSlot("aac", queue, std::move(tell)) {}

 protected:
  void unpack(const AVPacket& packet, const PacketTimes& times) override;
};

}  // namespace zeva
