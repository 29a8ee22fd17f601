// One destination of a packet recording: a file or a live stream.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "open_files.h"
#include "output_thread.h"
#include "status.h"
#include "zv2_aac_to_opus.h"

namespace zeva {

// Routes packets of the two inputs into one output, an RTSP output's sound through a transcoder.
// Owns the output with its queue and thread, and the transcoder. One worker thread calls open,
// start, enqueue, finish and close, in that order; `give_up_soon` may be called from any thread at
// any time.
class OutputContext : private OutputListener {
 public:
  OutputContext(const std::string& url, const ZevaOutputPolicy& host_policy,
                MovieOutput::Report report);
  ~OutputContext() { close(); }
  OutputContext(const OutputContext&) = delete;
  OutputContext& operator=(const OutputContext&) = delete;

  // Opens the output and writes its header, unless its thread does; `files` are those of the
  // outputs before it. A stream may be null; both are only read. Blocks while a network output
  // connects, at most 5 s for each step. After a failure the object is only good to be destroyed,
  // unless the recording can do without it: it succeeds then, and takes nothing.
  Status open(const AVStream* video_stream, const AVStream* audio_stream,
              const std::string& snapshot_path, const std::string& meta, OpenFiles& files);
  // Starts the thread that writes.
  Status start() { return thread.start(); }

  // Queues a packet of one of the two inputs, whose times are in `time_base`; a null one gives out
  // what the transcoder still holds. A packet of a stream that the output does not have is left
  // out. False when the output has failed and the recording cannot do without it.
  bool enqueue_video(const AVPacket* packet, AVRational time_base);
  bool enqueue_audio(const AVPacket* packet, AVRational time_base);

  // Queues what the transcoder still holds, and the end. Returns at once, so that all outputs of a
  // recording can end side by side.
  void finish();

  // Waits until what is queued and the trailer are written, and frees everything.
  void close();

  // The first thing that went wrong after the opening; complete once `close` has returned.
  const Status& failure() const { return first_failure; }

  const std::string& url() const { return thread.output.url(); }
  // Any thread: packets that wait to be written, whether the output has failed, and whether that
  // ends the recording.
  int32_t queued() const { return static_cast<int32_t>(thread.queue.backlog().packets); }
  bool failed() const { return thread.has_failed(); }
  bool is_optional() const { return thread.policy.optional; }
  // Neither failed nor finished early.
  bool takes_packets() const { return thread.takes_packets(); }
  bool finished_early() const { return thread.has_finished_early(); }
  int64_t recorded_us() const { return thread.output.recorded_us(); }
  bool ends_recording() const { return failed() && !thread.policy.optional; }
  void fill(ZevaOutputState& state) const { thread.fill(state); }

  // The recording is to end: a network output has 1.5 s from the first call. Files are not touched.
  void give_up_soon() { thread.output.io.exit(); }
  // Nothing waits for a live stream any more.
  void stop_waiting() {
    if (thread.policy.live) thread.queue.stop_waiting();
  }

 private:
  Status try_open(const AVStream* video_stream, const AVStream* audio_stream,
                  const std::string& snapshot_path, const std::string& meta, OpenFiles& files);
  Status make_context();
  Status make_transcoder(const AVStream* audio_stream);
  Status add_streams(const AVStream* video_stream, const AVStream* audio_stream);
  Status add_stream(const AVStream& source);
  Status open_io();
  Status start_index(const std::string& path);
  Status write_header();
  bool enqueue(const AVPacket* packet, AVRational time_base, int stream_index);
  bool fits(const AVPacket& packet) const;
  bool grows(const AVPacket& packet);

  // On the writer thread.
  void on_end_of_packets(int64_t written) override;
  void on_trailer(int64_t written) override;
  void on_write_error(int code) override;
  void on_trailer_error(int code) override;
  void on_finished() override;
  void fail(const char* what, int result);

  OutputThread thread;
  int32_t video_index = -1;
  int32_t audio_index = -1;
  bool flv = false;
  std::array<int64_t, 2> last_times{INT64_MIN, INT64_MIN};  // of the streams, in their units
  std::unique_ptr<AacToOpus> transcoder;
  Status first_failure;  // the writer thread's until it has ended
};

using OutputList = std::vector<std::unique_ptr<OutputContext>>;

}  // namespace zeva
