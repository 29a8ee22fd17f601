// Packets as records and back. Encoder and decoder keep the same state, so that what one leaves out
// the other puts in again.
#pragma once

#include <cstdint>

#include "index_format.h"

namespace zeva {

// A packet of a recording and the place of its bytes.
struct IndexedPacket {
  int stream_index = 0;
  bool audio = false;    // of the audio class; its time base is the audio line's, else the video's
  int64_t position = 0;  // bytes into the movie; may lie anywhere when the index is damaged
  int32_t size = 0;      // bytes; may be negative when the index is damaged
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t duration = 0;
  bool key = false;
  bool placed = false;  // the record carries the position
  // Bytes between the end of the record before and `position`: the packets in them have no record.
  // Negative when the index is damaged.
  int64_t skipped_bytes = 0;
};

// The state that encoder and decoder share: the records so far.
struct RecordState {
  struct Times {
    int64_t pts = 0;
    int64_t dts = 0;
  };
  Times last_audio;
  Times last_video;           // of every stream that is not the audio stream
  int64_t next_position = 0;  // where the record before ends
  bool any = false;           // whether there was a record
};

// Makes records of packets as the muxer gets them. A packet's size is known when the next one
// comes, so every record is one packet late. Differences wrap around. Allocates nothing.
class RecordEncoder {
 public:
  RecordEncoder() = default;
  // `audio_index` is -1 without an audio stream, `frame_size` the samples of its usual packet.
  RecordEncoder(int audio_index, int64_t frame_size)
      : audio_index(audio_index), frame_size(frame_size) {}

  // Takes the packet that the muxer writes next, from `position` on; its `audio`,
  // `size`, `placed` and `skipped_bytes` are ignored. True when `record` is that of the packet
  // before.
  bool push(const IndexedPacket& packet, IndexRecord& record);

  // The same when the packet before is to have no record: the next record then carries its own
  // position, and its times count from the last packet that has one.
  void push_unrecorded(const IndexedPacket& packet);

  // The packet that was taken last was not written after all, and has no record.
  void take_back() { has_previous = false; }

 private:
  IndexRecord encode(const IndexedPacket& packet, const IndexedPacket& next);

  int audio_index = -1;
  int64_t frame_size = 0;
  RecordState state;
  IndexedPacket previous;
  bool has_previous = false;
};

// Adds up deltas and sizes from record to record. Sums wrap around, as the encoder's differences
// do, so that every pair of time stamps comes back exactly.
class RecordDecoder {
 public:
  RecordDecoder() = default;
  RecordDecoder(int audio_index, int64_t frame_size)
      : audio_index(audio_index), frame_size(frame_size) {}

  IndexedPacket decode(const IndexRecord& record);

 private:
  int audio_index = -1;
  int64_t frame_size = 0;
  RecordState state;
};

}  // namespace zeva
