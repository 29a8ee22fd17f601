// Pictures to packets.
#pragma once

#include <memory>
#include <string>

#include "enc_base.h"
#include "zeva/record.h"

namespace zeva {

// Encodes pictures, converting those that are not in the codec's pixel format, and hands every
// packet to the writer. Owns its filter and its scalers. One thread at a time.
class VideoEnc : public EncBase {
 public:
  using EncBase::EncBase;
  ~VideoEnc() override;

  // Opens the codec and allocates the stream's frame. Throws std::string with the reason.
  void open(AVFormatContext* oc, const AVCodec* codec, OutputStream& ost, AVDictionary* options,
            const MovieInfo& settings);

  // A null frame flushes. The number of packets handed on; -1 without an output context, -2 when
  // the codec refused the frame, -3 when the writer refused a packet.
  int encode(AVFormatContext* oc, OutputStream& ost, AVFrame* frame);

  // The next picture of the moving colour pattern, stamped in `tb`; the stream's tmp_frame.
  AVFrame* generate_test_frame(OutputStream& ost, AVRational tb);

  // The encoder deletes its filter; the audio encoder does not. Hosts rely on the difference.
  FilterBase* filter = nullptr;

 private:
  AVFrame* convert(OutputStream& ost, AVFrame* frame);
  bool draw_test_picture(OutputStream& ost);

  SwsPtr conversion_scaler;
  SwsPtr pattern_scaler;
  int frame_refs = 1;
  int64_t pattern_period_sec = 10;
  int pattern_counter = 0;
};

}  // namespace zeva
