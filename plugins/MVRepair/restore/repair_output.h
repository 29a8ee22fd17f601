// The movie that a repair writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "av_handles.h"
#include "index_reader.h"

namespace zeva {

// A thin layer over FFmpeg's muxer: streams out of an index's descriptions, packets with time
// stamps in the index's time bases. Owns context and I/O. Used by one thread; calls in the order of
// the methods. Results are FFmpeg codes.
class RepairOutput {
 public:
  // `stopped` must outlive the object: while it is set, a network output gives up.
  explicit RepairOutput(const std::atomic<bool>& stopped) : stopped(stopped) {}
  ~RepairOutput() { (void)close(); }
  RepairOutput(const RepairOutput&) = delete;
  RepairOutput& operator=(const RepairOutput&) = delete;

  [[nodiscard]] int create(const std::string& path);
  [[nodiscard]] int add_streams(const IndexStreams& streams);
  [[nodiscard]] int open();
  [[nodiscard]] int write_header();
  // Writes one packet without interleaving. `data` stays the caller's and has FFmpeg's padding.
  [[nodiscard]] int write(const IndexedPacket& indexed, uint8_t* data);
  [[nodiscard]] int write_trailer();
  // Whether the output took no more bytes; it never will again.
  bool broken() const { return context->pb != nullptr && context->pb->error < 0; }
  [[nodiscard]] int close();

 private:
  int add_audio_stream(const AudioDescription& audio);
  int add_video_stream(const VideoDescription& video);
  void print_refused(const AVPacket& packet, AVRational time_base) const;
  bool has_file() const { return (context->oformat->flags & AVFMT_NOFILE) == 0; }

  const std::atomic<bool>& stopped;
  std::string url;
  FormatContextPtr context;
  AVRational audio_time_base{0, 1};  // of the index
  AVRational video_time_base{0, 1};  // of the index, for whatever is not audio
};

}  // namespace zeva
