// A host's PCM as AAC packets.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
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

  // Gets each packet with its time in microseconds, counted in samples from 0; null data asks to
  // give out what is held back. The bytes live only during the call.
  using Sink = std::function<void(const uint8_t* data, int nbytes, int64_t pts)>;

  // Null, with a log line, on failure.
  static std::unique_ptr<AACEncoder> create(const AudioSettings& settings, int flags);

  AACEncoder(const AACEncoder&) = delete;
  AACEncoder& operator=(const AACEncoder&) = delete;

  // Takes `nb_samples` in the declared format, from one plane or one a channel; fewer than 1
  // flushes. `usec` is not used: sound made from PCM is contiguous, so time is what was encoded.
  bool encode(const uint8_t* const* planes, int32_t nb_samples, int64_t usec, const Sink& sink);

 private:
  AACEncoder() = default;
  Status open(const AudioSettings& settings, int flags);
  Status open_encoder(int flags);
  bool make_input_frame();
  bool point_input_at(const uint8_t* const* planes, int nb_samples);
  bool encode_frame(AVFrame* frame, const Sink& sink);
  void deliver(const AVPacket& packet, const Sink& sink);

  AudioSettings settings;
  AVSampleFormat input_format = AV_SAMPLE_FMT_NONE;
  CodecContextPtr encoder;
  FFResample resample;
  FramePtr input;  // describes the host's PCM, points at it during a call
  PacketPtr packet;
  std::vector<uint8_t> adts_frame;
  int64_t samples_sent = 0;
};

}  // namespace zeva
