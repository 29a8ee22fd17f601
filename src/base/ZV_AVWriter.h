// One output of a recording: its queue, its thread, its place in the chain of outputs.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "av_handles.h"
#include "packetqueue.h"
#include "snapshot.h"
#include "writer_base.h"

namespace ZV {

// Puts packets into the stream's time base, drops those whose time does not grow, queues them and
// writes them on a thread of its own; forwards every packet to the next output. The first writer of
// a chain writes into the muxer's context, which it borrows; further ones own theirs. An ".mp4"
// output gets a crash-safe index.
//
// The recording's owner calls create_other_writers, open, start, write_packet (the one producer)
// and stop, in that order and one at a time; request_exit may be called from any thread.
class ZV_AVWriter : public zeva::BaseWriter {
 public:
  ZV_AVWriter(uint32_t max_packets, uint32_t interleave_allowance, const char* url);
  ~ZV_AVWriter() override;

  void create_other_writers(const char* const* urls) override;
  bool start() override;
  // Finishes every output of the chain: tailers queued, threads joined, further outputs and indexes
  // closed. Safe to call again.
  void stop() override;
  zeva::WriterResult open(AVFormatContext* main_context, const char* meta_info,
                          const char* index_path) override;
  // 0 queued or dropped; negative when the queue was aborted by a write error, or without context.
  // Blocks while the queue is full.
  int write_packet(AVRational time_base, AVPacket* packet, bool interleave) override;
  int write_trailer() override;

 private:
  ZV_AVWriter* next_writer() const { return static_cast<ZV_AVWriter*>(next.get()); }
  bool is_main() const { return previous == nullptr; }
  bool exited() const { return io.exited(); }

  zeva::WriterResult make_own_context(const AVFormatContext* main_context);
  void start_index(const char* index_path);
  bool grows(const AVStream& stream, const AVPacket& packet);
  int enqueue(const AVPacket& packet, bool interleave);

  void write_loop();
  int write_queued(int64_t* written);
  void report_write_error(int code);
  void close_own_context();

  // Fixed after construction.
  const uint32_t maxNpkt;
  const uint32_t interleave_allowance;
  const std::string url;

  zeva::PacketQueue queue;
  zeva::FormatContextPtr own_context;  // further writers only
  std::unique_ptr<zeva::Snapshot> snapshot;
  std::array<int64_t, 8> last_times;  // producer only, one a stream
  std::atomic<bool> trailer_written{false};
  std::thread thread;
};

}  // namespace ZV
