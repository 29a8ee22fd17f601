// A recording of raw pictures and sound that the library encodes.
#pragma once

#include "frame_source.h"
#include "output_policies.h"
#include "record_options.h"
#include "record_settings.h"
#include "recording.h"

namespace zeva_tool {

class FrameRecording : public Recording {
 public:
  // The references must outlive the recording.
  FrameRecording(const RecordOptions& options, FrameSource& source);
  ~FrameRecording() override { FrameRecording::stop(); }
  FrameRecording(const FrameRecording&) = delete;
  FrameRecording& operator=(const FrameRecording&) = delete;

  Status prepare() override;
  void start(StatusInbox& inbox) override;
  bool begin(RecordingStreams& streams, StatusLine& line) override;
  void* handle() override { return recording; }
  bool pause() override { return ZEVA_pause(recording); }
  bool resume() override { return ZEVA_resume(recording); }
  int64_t movie_time_us() const override { return ZEVA_movie_time(recording); }
  bool one_failure_ends_all() const override { return options.require_streams; }
  bool output_state(int32_t output, ZevaOutputState& state) const override {
    return ZEVA_output_state(recording, output, &state);
  }
  bool statistics(ZevaStatistics& figures) const override {
    return ZEVA_statistics(recording, &figures);
  }
  void stop() override { ZEVA_stop(&recording); }

 private:
  static void receive(int code, const char* message, void* self) noexcept;

  const RecordOptions& options;
  const OutputPolicies policies;
  FrameSource& source;
  RecordSettings settings;
  void* recording = nullptr;
  StatusInbox* inbox = nullptr;
};

}  // namespace zeva_tool
