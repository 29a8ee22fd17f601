// What the encoders write to: the plain form of an output writer.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "ffmpeg.h"
#include "io_interrupt.h"

namespace zeva {

// Result of the opening steps.
struct WriterResult {
  int64_t value = 0;  // 1 after a successful opening, an error code after a failed one
  std::string message;
  bool failed = false;

  static WriterResult failure(int64_t code, std::string text) {
    return {code, std::move(text), true};
  }
};

using StatusCallback = void (*)(int code, const char* message, void* user);

// Writes packets straight into the output context given to open(), on the caller's thread. Owns the
// further writers linked behind it; the context stays its maker's.
class BaseWriter {
 public:
  BaseWriter() = default;
  virtual ~BaseWriter() = default;
  BaseWriter(const BaseWriter&) = delete;
  BaseWriter& operator=(const BaseWriter&) = delete;

  // Makes further writers for `urls`, which ends at the first null entry.
  virtual void create_other_writers(const char* const* urls);
  virtual bool start();
  virtual void stop();
  // Writes the header into `main_context`, after setting the "key:value;..." metadata.
  virtual WriterResult open(AVFormatContext* main_context, const char* meta_info,
                            const char* index_path);
  // Writes `packet`, whose times are in `time_base`, with interleaving. FFmpeg's result.
  virtual int write_packet(AVRational time_base, AVPacket* packet, bool interleave);
  virtual int write_trailer();

  // Marks the whole chain as ended, with writers yet to be linked: openings fail, network calls
  // give up. Called on the first writer; any thread, any time. Cannot be undone.
  void request_exit();
  // Bounds every network operation of the chain; 0 or less for the default.
  void set_timeout(int timeout_sec);

  // Consulted by FFmpeg while a network output waits for its peer.
  IoInterrupt io;

  // Installed before start; called with a failing output's code and FFmpeg's text.
  StatusCallback error_callback = nullptr;
  void* error_user = nullptr;

 protected:
  WriterResult write_header(const char* meta_info);
  // Moves the packet's times into its stream's time base.
  AVStream* rescale_to_stream(AVRational time_base, AVPacket* packet) const;

  AVFormatContext* context = nullptr;
  double movie_time = 0;  // seconds, of the last packet accepted
  BaseWriter* previous = nullptr;
  std::mutex chain_mutex;  // the first writer's: held while the chain grows, or others run along it
  std::unique_ptr<BaseWriter> next;
};

}  // namespace zeva
