// One destination of a packet recording: a file or a live stream.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "av_handles.h"
#include "blocking_queue.h"
#include "io_interrupt.h"
#include "snapshot.h"
#include "status.h"
#include "zv2_aac_to_opus.h"

namespace zeva {

// Owns the muxer's context, a queue of packets, the thread that writes them, the transcoder of an
// RTSP output and the index of a movie. One worker thread calls open, enqueue, flush and close, in
// that order; `give_up_soon` may be called from any thread at any time.
class OutputContext {
 public:
  OutputContext();
  ~OutputContext();
  OutputContext(const OutputContext&) = delete;
  OutputContext& operator=(const OutputContext&) = delete;

  // Opens the output, writes its header and starts its thread. A stream may be null; both are only
  // read. Blocks while a network output connects, at most 5 s for each step. After a failure the
  // object is only good to be destroyed.
  Status open(const AVStream* video_stream, const AVStream* audio_stream, const std::string& url,
              const std::string& snapshot_path, const std::string& meta);

  // Queues a reference to `packet`, whose times are in `time_base`; a null one ends the output
  // after what is queued. A packet of a stream that the output does not have is left out. False
  // when the output has failed.
  bool enqueue(const AVPacket* packet, AVRational time_base, int stream_index);

  // Queues a packet of one of the two inputs, the sound through the transcoder where there is one.
  bool enqueue_video(const AVPacket* packet, AVRational time_base);
  bool enqueue_audio(const AVPacket* packet, AVRational time_base);

  // Queues what the transcoder still holds, and the end. Returns at once, so that all outputs of a
  // recording can end side by side.
  void finish();

  // Waits until what is queued and the trailer are written, and frees everything.
  void close();

  // The first thing that went wrong after the opening; complete once `close` has returned.
  const Status& failure() const { return first_failure; }

  // Packets that wait to be written, and whether writing has failed; any thread.
  int32_t queued() { return packets.size(); }
  bool failed() const { return packets.is_aborted(); }

  // The recording is to end: a network output has 1.5 s from the first call. Files are not touched.
  void give_up_soon() { io.exit(); }

 private:
  Status open_snapshot(const std::string& path);
  Status make_context();
  void set_metadata(const std::string& meta);
  Status set_rtsp_options(const AVStream* audio_stream);
  Status add_streams(const AVStream* video_stream, const AVStream* audio_stream);
  Status add_stream(const AVStream& source);
  Status open_io();
  void attach_snapshot(const std::string& path);
  Status write_header();
  bool owns_io() const { return (oc->oformat->flags & AVFMT_NOFILE) == 0; }

  void write_loop();
  bool write(PacketPtr packet);
  void fail(const char* what, int result);

  std::string url;
  FormatContextPtr oc;
  int32_t video_index = -1;
  int32_t audio_index = -1;
  std::unique_ptr<AacToOpus> transcoder;
  std::thread thread;
  qel::BlockingQueue<AVPacket*> packets;  // null ends the output
  std::unique_ptr<Snapshot> snapshot;
  IoInterrupt io;
  Status first_failure;  // the writer thread's until it has ended
};

using OutputList = std::vector<std::unique_ptr<OutputContext>>;

// Hands a demuxed packet to every output, by the name of the input that it is from. Negative when
// an output refused it.
int route(const AVPacket* packet, AVRational time_base, const char* name,
          const OutputList& outputs);

}  // namespace zeva
