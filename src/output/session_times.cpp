#include "session_times.h"

#include <algorithm>
#include <utility>

namespace zeva {

void SessionTimes::begin(std::vector<Stream> of_streams, bool anew) {
  streams = std::move(of_streams);
  has_pictures =
      std::any_of(streams.begin(), streams.end(), [](const Stream& s) { return s.pictures; });
  moved = waiting = anew;
}

int64_t SessionTimes::shown_at(const AVPacket& packet) {
  return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
}

bool SessionTimes::begins_with(const AVPacket& packet) const {
  if (!has_pictures) return true;
  const bool picture = streams[static_cast<size_t>(packet.stream_index)].pictures;
  return picture && (packet.flags & AV_PKT_FLAG_KEY) != 0;
}

bool SessionTimes::fit(AVPacket& packet) {
  if (!moved) return true;
  const Stream& stream = streams[static_cast<size_t>(packet.stream_index)];
  if (waiting) {
    if (!begins_with(packet)) return false;
    waiting = false;
    origin_base = stream.time_base;
    origin = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    first_shown = shown_at(packet);
    first_stream = packet.stream_index;
  }
  // Pictures that are shown before the key picture refer to pictures that are not there.
  if (packet.stream_index == first_stream && shown_at(packet) < first_shown) return false;
  const int64_t offset = av_rescale_q(origin, origin_base, stream.time_base);
  if (shown_at(packet) < offset) return false;
  if (packet.pts != AV_NOPTS_VALUE) packet.pts -= offset;
  if (packet.dts != AV_NOPTS_VALUE) packet.dts -= offset;
  return true;
}

}  // namespace zeva
