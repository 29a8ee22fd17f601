// A host's PCM as AAC packets.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "av_handles.h"
#include "ff_resample.h"
#include "status.h"

namespace zeva {

struct AudioSettings {
  int32_t sample_rate = 0;  // Hz
  int32_t channels = 0;
  std::string sample_format;  // "s16", "flt32p" or "flt32"
  int32_t bitrate = 0;        // kbit/s
};

// Encodes AAC-LC with ADTS headers. Used by the one thread that writes PCM.
class AACEncoder {
 public:
  static constexpr int kGlobalHeader = 64;

  // Gets each packet with its time and duration in microseconds. The first one is the encoder's
  // delay: it begins before the sound. Null data asks to give out what is held back. The bytes live
  // only during the call.
  using Sink = std::function<void(const uint8_t* data, int nbytes, int64_t pts, int64_t duration)>;

  // Null, with a log line, on failure.
  static std::unique_ptr<AACEncoder> create(const AudioSettings& settings, int flags);

  AACEncoder(const AACEncoder&) = delete;
  AACEncoder& operator=(const AACEncoder&) = delete;

  // Takes `nb_samples` in the declared format, from one plane or one a channel; fewer than 1
  // encodes all that is left, the last packet as long as its sound. `usec` is the time of the very
  // first sample; after that it is not used: sound made from PCM is contiguous.
  bool encode(const uint8_t* const* planes, int32_t nb_samples, int64_t usec, const Sink& sink);

  // By how many samples the first packet begins before the sound; any thread.
  int delay_samples() const { return delay; }

 private:
  AACEncoder() = default;
  Status open(const AudioSettings& wanted, int wanted_flags);
  Status open_encoder();
  bool make_input_frame();
  bool point_input_at(const uint8_t* const* planes, int nb_samples);
  bool encode_buffered(int least_samples, const Sink& sink);
  bool encode_rest(const Sink& sink);
  bool encode_frame(AVFrame* frame, const Sink& sink);
  int64_t time_of(int64_t samples) const;
  void deliver(const AVPacket& packet, const Sink& sink);

  AudioSettings settings;
  AVSampleFormat input_format = AV_SAMPLE_FMT_NONE;
  CodecContextPtr encoder;
  FFResample resample;
  FramePtr input;  // describes the host's PCM, points at it during a call
  PacketPtr packet;
  std::vector<uint8_t> adts_frame;
  int flags = 0;
  int delay = 0;       // fixed by create
  bool ended = false;  // the encoder has given out all, and must be opened again

  // In samples of the sound.
  int64_t samples_sent = 0;
  int64_t given_until = INT64_MIN;
  std::optional<int64_t> begin_us;  // of the first one
};

}  // namespace zeva
