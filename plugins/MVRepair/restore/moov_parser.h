// Reads an index file: the description of the streams, then the record lines one by one.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "files.h"
#include "index_reader.h"

namespace zeva {

// Owns the index file while it is read, and one line buffer; a line is not copied. Used by one
// thread at a time. Lines longer than the buffer come in pieces.
class MoovParser {
 public:
  // Reads header and stream lines, and prepares the extradata: afterwards `video.ev` is an AVC
  // decoder configuration record and `audio.ev` an AudioSpecificConfig, in base64. False, with a
  // log line, when the file cannot be opened or describes no usable stream; reset before reuse.
  [[nodiscard]] bool parse(const char* index_path);

  // The next record line, valid until the next call; null at the end. The first call reads the file
  // from the top again.
  const char* next_record_line();

  // The share of the index in front of the line handed out last, 0..1; or the forced value.
  double progress() const;
  void force_progress(double value) { forced_progress = value; }

  int64_t line_number() const { return line_count; }  // of that line, head included, from 1
  int version() const { return index_version; }
  const IndexStreams& streams() const { return described; }

  void reset() { *this = MoovParser(); }

 private:
  bool read_head(FILE* file);
  bool prepare_video_extradata();
  bool prepare_audio_extradata();
  bool reopen();
  const char* read_line(FILE* file);

  std::string path;
  FilePtr index_file;
  std::array<char, kIndexLineBufferBytes> line{};
  int64_t head_line_count = 0;  // header and stream lines
  int index_version = 0;
  IndexStreams described;
  int64_t size_bytes = 0;
  int64_t consumed_bytes = 0;
  int64_t line_count = 0;
  double forced_progress = -1;  // counts when not negative
};

}  // namespace zeva
