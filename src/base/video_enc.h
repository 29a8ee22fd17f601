// Pictures to packets.
#pragma once

#include <memory>
#include <string>

#include "enc_base.h"
#include "zeva/record.h"

namespace zeva {

// Encodes pictures, converting those that are not in the codec's format and size, and hands every
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
  // The frame in the codec's format and size; null when it cannot be made so.
  AVFrame* convert(OutputStream& ost, AVFrame* frame);
  bool draw_test_picture(OutputStream& ost);

  SwsPtr conversion_scaler;  // for pictures as the first one to be converted was
  int conversion_width = 0;
  int conversion_height = 0;
  int conversion_format = -1;
  SwsPtr pattern_scaler;
  int frame_refs = 1;
  int64_t pattern_period_sec = 10;
  int pattern_counter = 0;
};

}  // namespace zeva
