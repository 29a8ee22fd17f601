#include "input_slot.h"

#include "logger.h"
#include "saturating.h"

namespace zeva {

bool InputSlot::stamp(AVPacket* packet) {
  const std::optional<int64_t> pts = next_time();
  if (!pts) return false;
  packet->pts = packet->dts = *pts;
  packet->pos = -1;
  packet->stream_index = -1;  // the outputs choose
  packet->duration = saturating_sub(*pts, last_pts);
  last_pts = *pts;
  return true;
}

std::optional<int64_t> InputSlot::next_time() {
  int64_t pts = 0;
  // Also when the end was read ahead already: the host's stamps are the truth.
  if (queue->pts_queue.pop(pts, false, 0, true) == qel::QueueResult::Ok) {
    ZEVA_LOG(kLogDebug, "[%s] --- get pts from que: pkt_pts=%lld,  (pts_q.size=%d)", name,
             static_cast<long long>(pts), queue->pts_queue.size());
    const std::optional<int64_t> smoothed = smoother.smooth(pts);
    if (!smoothed) {
      ZEVA_LOG(kLogError,
               "[%s] a packet at %lld us is left out: its time goes back (last_pts=%lld)", name,
               static_cast<long long>(pts), static_cast<long long>(last_pts));
    }
    return smoothed;
  }
  // The demuxer made several packets of one.
  ZEVA_LOG(kLogError, "[%s] --- get pts from queue failed. (last_pts=%lld) +1", name,
           static_cast<long long>(last_pts));
  return smoother.next();
}

}  // namespace zeva
