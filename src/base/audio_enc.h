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

  // The next piece of the rising tone, stamped in `tb`. Null when the host's sample format cannot
  // hold the tone's interleaved 16-bit samples.
  AVFrame* generate_test_frame(AVRational tb);

  std::atomic<FilterBase*> filter{nullptr};  // the host's; set by any thread

 private:
  void edit(AVPacket* packet) override;

  RisingTone tone;
  int64_t tone_period_sec = 10;
};

}  // namespace zeva
