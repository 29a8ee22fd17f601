// Sound to packets.
#pragma once

#include <string>

#include "enc_base.h"
#include "test_signal.h"
#include "zeva/record.h"

namespace zeva {

// Encodes sound frames of the codec's format and frame size and hands every packet to the writer.
// Does not own its filter. One thread at a time.
class AudioEnc : public EncBase {
 public:
  using EncBase::EncBase;

  // Opens the codec and allocates the stream's frame. Throws std::string with the reason.
  void open(AVFormatContext* oc, const AVCodec* codec, OutputStream& ost, AVDictionary* options,
            const MovieInfo& settings);

  // A null frame flushes. The number of packets handed on; -1 without an output context, -2 when
  // the codec refused the frame, -3 when the writer refused a packet.
  int encode(AVFormatContext* oc, OutputStream& ost, AVFrame* frame);

  // The next piece of the rising tone, stamped in `tb`; the stream's tmp_frame. Null when the
  // host's sample format cannot hold the tone's interleaved 16-bit samples.
  AVFrame* generate_test_frame(OutputStream& ost, AVRational tb);

  FilterBase* filter = nullptr;  // the host's

 private:
  RisingTone tone;
  int64_t tone_period_sec = 10;
};

}  // namespace zeva
