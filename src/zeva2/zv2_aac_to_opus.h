// AAC as Opus, which is what RTSP outputs carry.
#pragma once

#include <cstdint>
#include <optional>

#include "av_handles.h"
#include "ff_resample.h"
#include "status.h"

namespace zeva {

// Decodes AAC packets and encodes their sound again: 48 kHz, stereo, 64 kbit/s. Used by one thread.
class AacToOpus {
 public:
  // Gets each Opus packet, which stays the transcoder's. False stops the transcoding of what the
  // call was given.
  using EmitPacket = bool (*)(AVPacket* packet, AVRational time_base, void* user);

  AacToOpus() = default;
  AacToOpus(const AacToOpus&) = delete;
  AacToOpus& operator=(const AacToOpus&) = delete;

  // `par` describes the AAC; call once.
  Status init(const AVCodecParameters* par);

  // A null packet ends the sound: all that is still held comes out. A packet that cannot be decoded
  // is left out with a log line. False when `emit` refused, or without memory. Opus time is counted
  // in samples from the time of the first packet on; it is set anew when the packets' times have
  // gone away from it, as after a gap. It always grows.
  bool transcode(const AVPacket* packet, AVRational time_base, EmitPacket emit, void* user);

  const AVCodecContext* opus_encoder() const { return encoder.get(); }
  AVRational time_base() const { return {1, kSampleRate}; }

 private:
  static constexpr int kSampleRate = 48000;

  Status open_decoder(const AVCodecParameters* par);
  Status open_encoder();
  bool decode(const AVPacket* packet);
  void follow(const AVPacket& packet, AVRational packet_time_base);
  void buffer_decoded();
  bool encode_buffered(EmitPacket emit, void* user);
  bool flush_encoder(EmitPacket emit, void* user);
  bool send_frame(AVFrame* frame);
  bool emit_encoded(EmitPacket emit, void* user);

  CodecContextPtr decoder;
  CodecContextPtr encoder;
  FFResample resample;
  FramePtr decoded;
  PacketPtr encoded;

  // In samples of the Opus.
  int64_t samples_sent = 0;
  std::optional<int64_t> begin;  // the time of sample 0, were there no gaps
  int64_t last_pts = INT64_MIN;
  bool ended = false;
};

}  // namespace zeva
