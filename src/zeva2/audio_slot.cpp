#include "audio_slot.h"

#include "aac.h"
#include "saturating.h"

namespace zeva {

// A packet may hold several frames, each of which begins where the one before ends.
void AudioSlot::unpack(const AVPacket& packet, const PacketTimes& times) {
  const uint8_t* const end = packet.data + packet.size;
  PacketTimes next = times;
  for (const uint8_t* at = packet.data; at != end;) {
    const AdtsFrame frame = parse_adts(at, static_cast<size_t>(end - at));
    if (frame.size_bytes == 0) return refuse(packet, "no frame of ADTS");
    const bool known =
        stream() != nullptr || (frame.tells_channels && learn(frame.data, frame.size_bytes));
    const int64_t duration = av_rescale(frame.samples, 1000000, frame.sample_rate);
    if (times.duration == 0) next.duration = duration;
    if (known) {
      give_out({packet, frame.data, frame.size_bytes, true}, next);
    } else {
      refuse(packet, "its sound cannot be decoded");
    }
    next.dts = saturating_add(next.dts, duration);
    at += frame.size_bytes;
  }
}

}  // namespace zeva
