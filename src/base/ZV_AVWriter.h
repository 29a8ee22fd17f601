// The outputs of a classic recording, each with its queue and its thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base_writer.h"
#include "ffmpeg.h"
#include "open_files.h"
#include "options.h"
#include "output_policy.h"
#include "status.h"

namespace zeva {
class MovieOutput;
using StatusCallback = void (*)(int code, const char* message, void* user);
}  // namespace zeva

namespace ZV {

class WriterOutput;

// Outputs that a packet is for.
enum class Audience { kAll, kFiles, kStreams };

// Hands every packet to all outputs: the main one, whose streams the muxer makes, and further ones
// with the same streams. Owns the outputs. The first output that needs one gets the crash-safe
// index. An output that fails takes none of the others with it.
//
// The recording's owner calls create_other_writers, open, start and stop, in that order and one at
// a time. Packets of one stream come from one thread at a time, those of different streams from
// any. request_exit may be called from any thread at any time.
class ZV_AVWriter : public zeva::BaseWriter {
 public:
  // `max_packets` may wait for an output, `interleave_allowance` more of those to be interleaved,
  // unless its policy in `options` says something else.
  ZV_AVWriter(uint32_t max_packets, uint32_t interleave_allowance, const char* url,
              zeva::Options options = {});
  ~ZV_AVWriter() override;

  // The main output, for the owner to create and to give its streams before `open`.
  zeva::MovieOutput& main_output();

  // Makes further outputs for `urls`, which ends at the first null entry, at most 3.
  void create_other_writers(const char* const* urls);
  // Bounds every network operation; 0 or less for the default.
  void set_timeout(int timeout_sec);

  // Empty, or a sentence that names the first output that cannot hold the codec. After
  // create_other_writers.
  std::string codec_fault(AVCodecID codec, Audience audience = Audience::kAll);
  // Files and live streams get different pictures. `others` describes those that the main output
  // does not take, until `open` has returned. Before `open`.
  void separate_pictures(const AVStream& others) { other_pictures = &others; }
  // Pictures keep their own times, about `interval` apart. Before `open`.
  void set_variable_rate(AVRational interval) { mean_interval = interval; }

  // Opens the main output's file or connects. 0 or FFmpeg's code; 0 also when the recording can do
  // without it or its thread opens it.
  int open_main_io();
  // Opens every output and writes its header, but for those that open themselves. `meta_info` is
  // "key:value;...".
  zeva::Status open(const char* meta_info, const char* index_path);
  // Starts a thread for each output.
  zeva::Status start();

  // Queues a packet, whose times are in `time_base`, for every output. A packet whose time does not
  // grow in an output's own units is left out there. Blocks while a queue is full. 0, or negative
  // when no output takes packets any more.
  int write_packet(AVRational time_base, AVPacket* packet, bool interleave) override {
    return write_packet(time_base, packet, interleave, Audience::kAll);
  }
  // Negative when none of these outputs takes packets any more.
  int write_packet(AVRational time_base, AVPacket* packet, bool interleave, Audience audience);

  // No write waits for a live stream any more, since the recording ends.
  void stop_waiting();
  // An output that must be there is not: the recording ends with the frames that the encoders have.
  void refuse_frames() { refusing = true; }
  bool refuses_frames() const { return refusing; }

  // False when there is no such output. Any thread.
  bool output_state(int32_t output, ZevaOutputState& state);
  int32_t output_count();
  // Movie time at which the newest packet ends that a crash of the program would leave; -1 without
  // an index. Any thread.
  int64_t recorded_us();
  // How much waits for the live stream that lags most, in microseconds; 0 without one. Any thread.
  int64_t slowest_stream_us();
  // A live stream leaves out pictures. Any thread.
  bool is_stream_dropping();

  // Ends all, gives up the network, joins each, closes each. Safe to call again.
  void stop();
  // The recording ends: openings fail, network calls give up. Cannot be undone.
  void request_exit();

  // Installed before start; called with a failing output's code and text, and with reports that do
  // not end an output.
  zeva::StatusCallback error_callback = nullptr;
  void* error_user = nullptr;
  // Asks the encoder for a key picture; called on any thread. Installed before start.
  std::function<void()> request_key_picture;

 private:
  zeva::OutputPolicy policy_of(uint32_t number, const char* url) const;
  zeva::Status open_output(WriterOutput& writer, const char* meta_info, const char* index_path);
  zeva::Status clone_main(WriterOutput& writer);
  zeva::Status start_index(WriterOutput& writer, const char* index_path);

  const uint32_t max_packets;
  const uint32_t interleave_allowance;
  const zeva::Options options;
  std::atomic<bool> refusing{false};
  std::vector<std::unique_ptr<WriterOutput>> outputs;  // fixed before any other thread knows of it
  zeva::OpenFiles files;
  std::vector<AVRational> stream_time_bases;  // of the encoders
  bool index_given = false;
  const AVStream* other_pictures = nullptr;
  AVRational mean_interval{0, 1};  // of pictures at a variable rate
};

}  // namespace ZV
