// Reads the recorded packets of a broken movie, and decides which of them come back.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "broken_file.h"
#include "ffmpeg.h"
#include "index_reader.h"
#include "lost_bytes.h"

namespace zeva {

// The repair writes the packets that are recovered here; `zeva inspect` counts them and so agrees
// with it. Owns the movie and one packet's bytes. Used by one thread at a time; packets come in the
// order of the index.
class PacketRecovery {
 public:
  enum class Fate {
    kRecovered,
    kBehindEnd,   // not wholly in the file; later packets are not there either
    kUnreadable,  // the system cannot read the place
    kNoMemory,
    kLost,       // zeros stand in place of its bytes or of some of them
    kDependent,  // a picture that only shows right with one before it that is missing
  };

  [[nodiscard]] bool open(const std::string& movie_path) { return movie.open(movie_path); }
  void close();

  // Takes the streams that the index describes, their extradata as it stands there. Call before the
  // first packet.
  void begin(const IndexStreams& streams);

  // Reads the packet and judges it. Its stream index may be anything.
  Fate take(const IndexedPacket& packet);
  // For a packet that is not wanted: it may lie at the end of the file or follow a hole, too.
  void pass_over(const IndexedPacket& packet);

  // Of the packet taken last, with FFmpeg's padding behind it; the caller may not keep it.
  uint8_t* data() { return bytes.get(); }
  const BrokenFile::ReadResult& read_result() const { return result; }

  // Bytes without a record between the packets so far.
  int64_t unrecorded_bytes() const { return bytes_in_holes; }
  // No later packet can be placed any more.
  bool at_end() const { return movie.at_end(); }

 private:
  struct Stream {
    bool pictures = false;
    bool has_lengths = false;  // H.264 with the length of each NAL unit in four bytes
    ZeroRule zeros = ZeroRule::kNone;
    std::string codec;
    int channels = 0;
    bool awaits_key = false;  // a picture is missing that the next ones may build on
  };

  bool reserve(int32_t size);
  void notice_hole(const IndexedPacket& packet);
  bool is_lost(const Stream& stream, const IndexedPacket& packet);
  bool touches_lost_block(const Stream& stream, const IndexedPacket& packet);
  bool is_lost_edge(const Stream& stream, const IndexedPacket& packet, int64_t block);

  BrokenFile movie;
  int64_t bytes_in_holes = 0;
  std::array<Stream, kIndexMaxStreams> streams;
  bool zeros_are_lost = false;  // no stream has blocks of zeros, so that one of them is no packet's
  struct AvFree {
    void operator()(uint8_t* p) const { av_free(p); }
  };
  std::unique_ptr<uint8_t, AvFree> bytes;
  int32_t capacity = 0;  // without the padding
  BrokenFile::ReadResult result;
};

}  // namespace zeva
