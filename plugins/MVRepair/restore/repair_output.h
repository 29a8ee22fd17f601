// The movie that a repair writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "index_reader.h"
#include "movie_output.h"

namespace zeva {

// Streams out of an index's descriptions, packets with time stamps in the index's time bases. Owns
// the output. Used by one thread; calls in the order of the methods. Results are FFmpeg codes.
class RepairOutput {
 public:
  // `stopped` must outlive the object: while it is set, a network output gives up.
  RepairOutput(const std::string& path, const std::atomic<bool>& stopped)
      : stopped(stopped), output(path) {}
  RepairOutput(const RepairOutput&) = delete;
  RepairOutput& operator=(const RepairOutput&) = delete;

  [[nodiscard]] int create();
  [[nodiscard]] int add_streams(const IndexStreams& streams);
  [[nodiscard]] int open();
  [[nodiscard]] int write_header();
  // Writes one packet without interleaving. `data` stays the caller's and has FFmpeg's padding.
  [[nodiscard]] int write(const IndexedPacket& indexed, uint8_t* data);
  [[nodiscard]] int write_trailer();
  // Whether the output took no more bytes; it never will again.
  bool broken() const { return output.is_broken() || output.is_full(); }
  [[nodiscard]] int close();

 private:
  int add_audio_stream(const AudioDescription& audio);
  int add_video_stream(const VideoDescription& video);
  void print_refused(const AVPacket& packet, AVRational time_base) const;

  AVStream* new_stream(AVMediaType type, AVRational time_base);

  const std::atomic<bool>& stopped;
  MovieOutput output;
  AVRational audio_time_base{0, 1};  // of the index
  AVRational video_time_base{0, 1};  // of the index, for whatever is not audio
};

}  // namespace zeva
