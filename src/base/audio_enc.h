// Sound to packets.
#pragma once

#include <atomic>

#include "enc_base.h"
#include "test_signal.h"
#include "zeva/record.h"

namespace zeva {

// Encodes sound frames of the codec's format and frame size and hands every packet to the writer.
// Does not own its filter. One thread at a time, but for `filter`.
class AudioEnc : public EncBase {
 public:
  AudioEnc(NewStream stream, BaseWriter* writer, Tell tell);

  // Opens the codec and allocates its frame.
  Status open(const MovieInfo& settings);

  // A null frame flushes. The number of packets handed on, or an EncodeResult.
  int encode(AVFrame* sound);

  // A long silence soon comes out as the same packet again and again. While that is so, it can be
  // made of copies, a hundred times as fast as by encoding it.
  bool is_steady() const { return same_packets >= kSteadyPackets; }
  // Hands on `count` copies of the last packet, as if as many frames had been encoded. False when
  // the writer refused one.
  bool repeat(int64_t count);

  // The next piece of the rising tone, stamped in `tb`. Null when the host's sample format cannot
  // hold the tone's interleaved 16-bit samples.
  AVFrame* generate_test_frame(AVRational tb);

  std::atomic<FilterBase*> filter{nullptr};  // the host's; set by any thread

 private:
  static constexpr int kSteadyPackets = 32;

  void edit(AVPacket* packet) override;
  void filter_packet(AVPacket* packet);

  PacketPtr last_packet;  // as it came out of the codec
  int same_packets = 0;   // in succession
  int64_t codec_behind =
      0;  // by how much the codec's times are behind, since it did not see copies
  RisingTone tone;
  int64_t tone_period_sec = 10;
};

}  // namespace zeva
