// All outputs of a packet recording.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "mux_settings.h"
#include "options.h"
#include "zv2_output_context.h"

namespace zeva {

// Opens them side by side, hands packets to all of them, and ends them together. The worker calls
// open, begin_recording, route, begin_ending and close, in that order; the rest is for any thread.
class MuxOutputs {
 public:
  // The references must outlive the object. `report` gets what does not end the recording.
  MuxOutputs(const MuxSettings& settings, const Options& options, MovieOutput::Report report);

  // Opens each and starts the threads. After a failure the object is only good to be destroyed.
  Status open(const AVStream* video_stream, const AVStream* audio_stream);
  // Hands a demuxed packet to every output, by the name of the input that it is from. Negative when
  // an output refused it, or none takes packets any more.
  int route(const AVPacket* packet, AVRational time_base, const char* name) const;
  void begin_recording() { enter(Phase::kRecording); }
  void begin_ending() { enter(Phase::kEnding); }
  // Finishes all and waits until they are. `failed` hears of each that was cut. True when one was,
  // or ended before the others.
  bool close(const std::function<void(const Status&)>& failed);
  void clear() { outputs.clear(); }

  // The host stops: nothing waits for a live stream any more, and what is still being opened gives
  // up. What is queued goes to all outputs before the time of the network runs, since one that is
  // given up may end the recording of the others too.
  void stop();

  // Packets that wait for the output that has most, leaving out those that nobody is to wait for;
  // -1 until all are open. False when an output has failed and ends the others.
  bool backlog(int32_t* packets);
  // False when there is no such output.
  bool state(int32_t output, ZevaOutputState& state);
  // Movie time that a crash would leave, of the output with the index; -1 for none.
  int64_t recorded_us();

 private:
  enum class Phase { kOpening, kRecording, kEnding };
  void enter(Phase next);
  void give_up_soon_locked();
  Status open_next(const std::string& url, const AVStream* video_stream,
                   const AVStream* audio_stream);

  const MuxSettings& settings;
  const Options& options;
  const MovieOutput::Report report;
  OpenFiles files;           // the worker's
  bool index_given = false;  // the worker's
  std::mutex mutex;          // while the list grows, or another thread runs along it
  OutputList outputs;
  Phase phase = Phase::kOpening;  // guarded by mutex
  bool stopping = false;          // guarded by mutex
};

}  // namespace zeva
