// An index as the repair needs it: streams that an output can be made of, and the progress.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "index_reader.h"

namespace zeva {

// Owns the reader of the index. Used by one thread at a time.
class MoovParser {
 public:
  // Reads header and stream lines, and prepares the extradata: afterwards `video.ev` is an AVC
  // decoder configuration record and `audio.ev` an AudioSpecificConfig, in base64. False, with a
  // log line, when the file cannot be opened or describes no usable stream; reset before reuse.
  [[nodiscard]] bool parse(const char* index_path);

  // The next record line, valid until the next call; null at the end.
  const char* next_record_line();
  // The next packet of that line, and what stands behind it.
  bool next_packet(IndexedPacket& packet) { return reader.next_packet(packet); }
  std::string_view rest_of_line() const { return reader.rest(); }

  // The share of the index in front of the line handed out last, 0..1; or the forced value.
  double progress() const;
  void force_progress(double value) { forced_progress = value; }

  int64_t line_number() const { return reader.line_number(); }  // head included, from 1
  int version() const { return reader.version(); }
  const IndexStreams& streams() const { return described; }
  // With the extradata that the index has.
  const IndexStreams& recorded_streams() const { return reader.streams(); }

  void reset() { *this = MoovParser(); }

 private:
  bool prepare_video_extradata();
  bool prepare_audio_extradata();

  IndexReader reader;
  IndexStreams described;
  int64_t size_bytes = 0;
  int64_t consumed_bytes = 0;
  double forced_progress = -1;  // counts when not negative
};

}  // namespace zeva
