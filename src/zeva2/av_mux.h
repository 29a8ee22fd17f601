// A packet recording: what the host's handle points to.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "aac_encoder.h"
#include "access_unit_assembler.h"
#include "annexb_filter.h"
#include "host_call.h"
#include "mux_outputs.h"
#include "mux_settings.h"
#include "options.h"
#include "recording_figures.h"
#include "status.h"
#include "zeva/packet.h"
#include "zv2_input_context.h"

namespace zeva {

// Puts the host's packets on the recording's time line and into the inputs; its worker thread
// takes them from there and hands them to the outputs. Owns the inputs, the outputs, the converters
// and the worker. The host's threads call everything public: each write function by one thread at a
// time, start first, stop last and alone.
class AVMux {
 public:
  AVMux(const MovieInfo2& info, const Options& host_options, ZEVA2_status_callback status_cb,
        void* user);
  ~AVMux();
  AVMux(const AVMux&) = delete;
  AVMux& operator=(const AVMux&) = delete;

  // Makes the converters that the settings ask for and starts the worker. False, after telling the
  // host, when a converter cannot be made.
  bool start();

  // Gives out what is held back, ends the inputs and waits for the worker, which finishes every
  // output.
  void stop();

  bool write_video_packet(const void* data, int nbytes, int64_t usec);
  bool write_video_packet2(const void* data, int nbytes, int64_t pts_us, int64_t dts_us);
  bool write_audio_packet(const void* data, int nbytes, int64_t usec);
  bool write_audio_pcm(const uint8_t* const* planes, int nb_samples, int64_t usec);

  bool pause();
  bool resume();
  bool is_paused() const { return pause_start > 0; }
  int64_t movie_time() const;

  // Packets that the worker has not taken, of the two inputs, and not written, of the output that
  // has most, -1 until all are open.
  struct Backlog {
    int32_t video = 0;
    int32_t audio = 0;
    int32_t outputs = -1;
  };
  // False when no more packets are taken, or an output has failed and will end the others.
  bool backlog(Backlog* backlog);

  // Fill in as much as the record's `struct_size` says; false when that cannot be, or there is no
  // such output. Never block.
  bool output_state(int32_t output, ZevaOutputState& state);
  bool statistics(ZevaStatistics& statistics);

  bool is_aborted() const { return aborted; }
  // None of the library's threads can wait for itself.
  bool in_status_callback() const { return HostCall::is_inside(this); }

 private:
  // The time line of one stream, in microseconds.
  struct StreamClock {
    std::atomic<int64_t> begin{-1};  // host time of the first packet
    std::atomic<int64_t> time{0};    // the latest positive time
  };
  int64_t rebase(StreamClock* clock, int64_t usec);
  // A picture's times as the host gave them.
  struct PictureTimes {
    int64_t pts_us;
    int64_t delay_us;  // how much earlier it is decoded
    bool exact;        // the host gave both
  };
  bool write_counted(const void* data, int nbytes, const PictureTimes& times);
  bool write_picture(const void* data, int nbytes, const PictureTimes& times);
  bool take_access_unit(const uint8_t* data, size_t size_bytes, const PictureTimes& times);

  void pop_status(const Status& status);
  void report(int32_t code, const std::string& text);
  bool refuse(int code, const char* text);

  // Worker thread.
  void work();
  void record();
  Status open_outputs();
  void flush_inputs();
  void end_worker();
  void clear();

  std::atomic<int64_t> pause_start{0};  // microseconds of the clock; above 0 while paused
  std::atomic<int64_t> pause_drift{0};  // microseconds paused so far
  std::atomic<bool> aborted{false};
  std::thread worker;
  StreamClock audio_clock;
  StreamClock video_clock;
  InputContext input;
  AccessUnitAssembler assembler;  // the thread that writes video

  RecordingFigures figures;
  // Fixed after start.
  std::unique_ptr<AACEncoder> aac_encoder;
  std::unique_ptr<h264::AnnexBFilter> annexb;
  const MuxSettings settings;
  const Options options;
  MuxOutputs outputs;
  const ZEVA2_status_callback status_cb;
  void* const user;

  std::atomic<int64_t> total_video_npkt{0};
  std::atomic<int64_t> total_audio_npkt{0};
};

}  // namespace zeva
