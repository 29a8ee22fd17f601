// Reads an index, which may be damaged: nothing here trusts a number, logs, or allocates for a
// record.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "files.h"
#include "index_format.h"
#include "record_coder.h"

namespace zeva {

// Lines are read in pieces of at most this many bytes, the terminating zero included.
inline constexpr int kIndexLineBufferBytes = 8192;
// Records can name the streams 0..4; stream lines behind the fifth are of no use.
inline constexpr int kIndexMaxStreams = 5;

struct VideoDescription {
  int index = -1;  // -1: no such stream line
  std::string codec, format;
  int width = 0, height = 0;
  int rotation_deg = 0;  // clockwise; may be anything when the index is damaged
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

// An index from its first line to its last record. Owns the file and one line buffer; a line is not
// copied. Used by one thread at a time.
//
//   while (reader.next_line())
//     for (IndexedPacket packet; reader.next_packet(packet);) use(packet);
class IndexReader {
 public:
  // Opens the regular file at the UTF-8 path and reads its head. False when there is none.
  [[nodiscard]] bool open(const std::string& path);

  bool is_empty() const { return line_count == 0; }
  int version() const { return index_version; }  // 0: the first line names none
  const IndexStreams& streams() const { return described; }

  // Goes to the next line behind the head; longer lines than the buffer come in pieces. False at
  // the end, and after a line with a NUL: a power failure left a gap there.
  bool next_line();
  // The line without its line end, up to a NUL; terminated by one. Valid until the next line.
  std::string_view line() const { return text; }
  int64_t line_number() const { return line_count; }    // from 1, the head included
  int64_t line_position() const { return line_begin; }  // bytes into the file
  bool is_cut_off() const { return !has_line_end; }     // the file ends without a line feed

  // The next packet of this line. False when no further record can be read from it.
  bool next_packet(IndexedPacket& packet);
  // The rest of the line after the last packet; before the first, the line.
  std::string_view rest() const { return unread; }
  // True when some of it is left, bytes after a NUL included.
  bool has_rest() const { return !unread.empty() || holds_nul; }

 private:
  void read_head();
  bool read_line();

  FilePtr file;
  std::array<char, kIndexLineBufferBytes> buffer{};
  std::string_view text;    // in `buffer`
  std::string_view unread;  // in `text`
  bool has_line_end = false;
  bool holds_nul = false;
  bool is_first_record_line_read = false;  // `text` is the line that ended the head
  int64_t line_begin = 0;
  int64_t line_end = 0;
  int64_t line_count = 0;
  int index_version = 0;
  IndexStreams described;
  RecordDecoder decoder;
};

}  // namespace zeva
