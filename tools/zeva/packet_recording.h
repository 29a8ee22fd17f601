// A recording of packets that are encoded already.
//
// The library takes packets faster than it gets rid of them, and drops what its queues have no room
// for. So packets are handed over only while few enough wait inside, and none is ever dropped.
#pragma once

#include "mux_options.h"
#include "output_policies.h"
#include "packet_source.h"
#include "recording.h"
#include "zeva/packet.h"

namespace zeva_tool {

class PacketRecording : public Recording {
 public:
  // The references must outlive the recording.
  PacketRecording(const MuxOptions& options, PacketSource& source);
  ~PacketRecording() override { PacketRecording::stop(); }
  PacketRecording(const PacketRecording&) = delete;
  PacketRecording& operator=(const PacketRecording&) = delete;

  Status prepare() override;
  void start(StatusInbox& inbox) override;
  bool begin(RecordingStreams& streams, StatusLine& line) override;
  void* handle() override { return recording; }
  bool pause() override { return ZEVA2_pause(recording); }
  bool resume() override { return ZEVA2_resume(recording); }
  int64_t movie_time_us() const override { return ZEVA2_movie_time(recording); }
  Room room() override;
  void flush() override;
  int64_t waiting() override;
  // Also false when what was written was too little to know the streams by: then the library opens
  // the outputs in the end, but its time stamps are gone.
  bool outputs_opened() const override {
    return seen_open || (seen_ended && inbox->failure_count() == 0);
  }
  bool has_ended() override { return !ZEVA2_backlog(recording, nullptr, nullptr, nullptr); }
  bool one_failure_ends_all() const override { return true; }
  bool output_state(int32_t output, ZevaOutputState& state) const override {
    return ZEVA2_output_state(recording, output, &state);
  }
  bool statistics(ZevaStatistics& figures) const override {
    return ZEVA2_statistics(recording, &figures);
  }
  void stop() override { ZEVA2_stop(&recording); }

 private:
  const MuxOptions& options;
  const OutputPolicies policies;
  PacketSource& source;
  const int32_t usual_waiting;  // packets of one stream or output
  MovieInfo2 settings{};
  void* recording = nullptr;
  StatusInbox* inbox = nullptr;
  bool seen_open = false;
  bool seen_ended = false;
  int unasked = 0;  // packets that certainly have room
  int64_t last_waiting = -1;
  int64_t still_since_us = 0;
};

}  // namespace zeva_tool
