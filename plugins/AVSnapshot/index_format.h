// The text of the crash-safe index: one header line, one JSON line a stream, then records of
// packets, many to a line. Everything that knows the syntax is here.
//
//   ## version=2, <producer>
//   {"type":"video","index":0,"codec":"h264",...}
//   {"type":"audio","index":1,"codec":"aac",...}
//   ,48,5123,,,512,1;1,,371,,,,1;,,873,512,,,;
//
// A record: stream index, file position, bytes, pts delta, dts delta, duration, key flag. The first
// record has a position, and so has one behind packets that could not be recorded; the others
// follow the record before. Zero is written as an empty field. Deltas are against the previous
// packet of the same class (the audio stream, or everything else), in the stream's time base.
//
// The dts delta is empty where dts equals pts, and written out elsewhere (reordered pictures), also
// when it equals the pts delta or is 0. Recordings made before reordered pictures were supported
// leave it empty for equal deltas, too, and never hold a written 0; both read the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ffmpeg.h"

namespace zeva {

inline constexpr int kIndexVersion = 2;
// A record line ends once its text is longer than this.
inline constexpr int kIndexLineBytes = 960;
// A record waits no longer than this for its line to fill before the file gets it; the next packet
// of any stream takes it along.
inline constexpr int kIndexHandOverMs = 200;
// The longest record: three 32-bit and four 64-bit fields, their signs, separators and the end.
inline constexpr int kIndexRecordMaxBytes = 3 * 11 + 4 * 20 + 7 + 1;

struct IndexRecord {
  int32_t stream_index = 0;
  int64_t position = 0;  // bytes into the movie; 0 (empty): right behind the previous packet
  int32_t size = 0;      // bytes the muxer wrote
  int64_t pts_delta = 0;
  std::optional<int64_t> dts_delta;  // without one, dts equals pts
  int64_t duration = 0;
  int32_t key = 0;
};

// The first line, with its line feed.
std::string index_header_line();

// The line of an audio or video stream, without a line feed; empty for other types. Pictures that
// players turn have a member more, "rotate": degrees clockwise.
std::string index_stream_line(const AVStream& stream);

// Writes `record` into `out` (room for kIndexRecordMaxBytes) and a terminating zero; returns the
// length. Fields are written as they are: what is to be empty must be 0. Allocates nothing.
int format_index_record(const IndexRecord& record, char* out);

}  // namespace zeva
