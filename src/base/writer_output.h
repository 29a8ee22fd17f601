// One output of a classic recording.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "ZV_AVWriter.h"
#include "output_thread.h"
#include "status.h"

namespace ZV {

// An output with the classic interface's texts and rules. Owns its queue and thread.
class WriterOutput : private zeva::OutputListener {
 public:
  WriterOutput(ZV_AVWriter& owner, const char* name, const char* url,
               const zeva::OutputPolicy& policy);

  // The container, also before its context is made; null when none is known.
  AVOutputFormat* format(const zeva::MovieOutput& main) const;

  bool is_for(Audience audience) const {
    return audience == Audience::kAll || thread.policy.live == (audience == Audience::kStreams);
  }

  // Makes the context of a further output beside the main one, with such `streams`. Opens nothing.
  zeva::Status clone(const zeva::MovieOutput& main, const std::vector<const AVStream*>& streams,
                     const std::vector<AVRational>& time_bases);

  // Pictures of no fixed rate, about `interval` apart, are to come. AVI numbers its pictures at a
  // constant rate: it gets one that is fine enough. Before the header.
  void fit_variable_rate(AVRational interval);

  // Opens the file or connects.
  zeva::Status open_io();

  // Rescales a copy of the packet and queues it, unless its time does not grow. 0, or negative when
  // the output has failed.
  int write(AVRational time_base, const AVPacket& packet, bool interleave);

  void close();

  zeva::OutputThread thread;

 private:
  bool grows(const zeva::OutputQueue::Stream& stream, const AVPacket& packet);

  // On the writer thread.
  void on_end_of_packets(int64_t written) override;
  void on_trailer(int64_t written) override;
  void on_write_error(int code) override;
  void on_trailer_error(int code) override;

  ZV_AVWriter& owner;
  const char* const name;             // in the log
  std::array<int64_t, 8> last_times;  // one a stream, each its producer's only
};

}  // namespace ZV
