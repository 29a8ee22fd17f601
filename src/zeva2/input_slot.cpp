#include "input_slot.h"

#include "logger.h"
#include "saturating.h"

namespace zeva {

void InputSlot::stamp(AVPacket* packet) {
  const int64_t pts = smoother.smooth(host_pts());
  packet->pts = packet->dts = pts;
  packet->pos = -1;
  packet->stream_index = -1;  // the outputs choose
  packet->duration = saturating_sub(pts, last_pts);
  last_pts = pts;
}

int64_t InputSlot::host_pts() {
  int64_t pts = 0;
  // Also when the end was read ahead already: the host's stamps are the truth.
  if (queue->pts_queue.pop(pts, false, 0, true) == qel::QueueResult::Ok) {
    ZEVA_LOG(kLogDebug, "[%s] --- get pts from que: pkt_pts=%lld,  (pts_q.size=%d)", name,
             static_cast<long long>(pts), queue->pts_queue.size());
    return pts;
  }
  // The demuxer made several packets of one.
  ZEVA_LOG(kLogError, "[%s] --- get pts from queue failed. (last_pts=%lld) +1", name,
           static_cast<long long>(last_pts));
  return saturating_add(last_pts, 1);
}

}  // namespace zeva
