// Reads what index_format writes, from text that may be damaged: nothing here trusts a number,
// logs, allocates for a record, or touches a file. Lines are texts up to a NUL, with or without LF,
// CR LF.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index_format.h"

namespace zeva {

// Readers take lines in pieces of at most this many bytes, the terminating zero included.
inline constexpr int kIndexLineBufferBytes = 8192;
// Records can name the streams 0..4; stream lines behind the fifth are of no use.
inline constexpr int kIndexMaxStreams = 5;

struct VideoDescription {
  int index = -1;  // -1: no such stream line
  std::string codec, format;
  int width = 0, height = 0;
  AVRational time_base{0, 0};
  std::string ev;  // extradata in base64
};

struct AudioDescription {
  int index = -1;  // -1: no such stream line
  std::string codec, format;
  int channels = 0, sample_rate = 0, frame_size = 0;
  AVRational time_base{0, 0};
  std::string ev;  // extradata in base64
};

// Several lines of one type: the last one counts, the list has them all.
struct IndexStreams {
  VideoDescription video;
  AudioDescription audio;
  std::vector<AVMediaType> list;  // in file order, at most kIndexMaxStreams
};

// Finds "version=" in a header line; `version` is left as it is without it.
void read_index_version(std::string_view line, int& version);

// Whether `line` is a stream line, that is, a JSON object. One of audio or video is added to
// `streams`, unless the list is full. Members that are missing, or of another type or range, read
// as 0 and "".
bool read_stream_line(std::string_view line, IndexStreams& streams);

inline bool index_version_known(int version) { return version == 1 || version == 2; }

// Takes the next record off the front of `rest`. False, with `rest` unchanged, when the line is
// finished: at its end, at a record that is cut off, at a field that has the record's end in its
// place, and always in a version that is not known. Numbers too large for their field saturate.
// Version 1: fields behind the first that does not read as a number are 0.
bool read_index_record(std::string_view& rest, int version, IndexRecord& record);

// What a record says once the deltas are added up.
struct IndexedPacket {
  int stream_index = 0;
  bool audio = false;    // of the audio class; its time base is the audio line's, else the video's
  int64_t position = 0;  // bytes into the movie; may lie anywhere when the index is damaged
  int32_t size = 0;      // bytes; may be negative when the index is damaged
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t duration = 0;
  bool key = false;
};

// Adds up deltas and sizes from record to record. Sums wrap around, as the writer's differences do,
// so that every pair of time stamps comes back exactly.
class RecordDecoder {
 public:
  RecordDecoder() = default;
  explicit RecordDecoder(const AudioDescription& audio)
      : audio_index(audio.index), frame_size(audio.frame_size) {}

  // An empty dts reads as the pts: the writer means "the same delta", which differs only for
  // reordered pictures.
  IndexedPacket decode(const IndexRecord& record);

 private:
  struct LastTimes {
    int64_t pts = 0;
    int64_t dts = 0;
  };
  int audio_index = -1;
  int frame_size = 0;
  LastTimes last_audio;
  LastTimes last_video;  // of every stream that is not the audio stream
  int64_t next_position = 0;
};

}  // namespace zeva
