// Pictures to packets.
#pragma once

#include <atomic>

#include "enc_base.h"
#include "picture_converter.h"
#include "variable_bit_rate.h"
#include "zeva/record.h"

namespace zeva {

// Encodes pictures, converting those that are not in the codec's format and size, and hands every
// packet to the writer. Owns its filter and its converters. One thread at a time, but for `filter`
// and request_key_picture.
class VideoEnc : public EncBase {
 public:
  VideoEnc(NewStream stream, BaseWriter* writer, Tell tell);
  ~VideoEnc() override;

  // Opens the codec and allocates its frame.
  Status open(const MovieInfo& settings);

  // From picture to picture at the mean rate.
  AVRational interval() const { return timing.interval; }

  // The pictures that the host announced.
  const PictureFormat& host_pictures() const { return host; }

  // The picture as the host's filter leaves it; null when it drops the picture.
  AVFrame* filtered(AVFrame* picture);

  // A null frame flushes. The number of packets handed on (0 while the codec holds the picture
  // back), or an EncodeResult. The picture is not kept. Its `duration`, in the same units as its
  // pts, counts at a variable rate; 0 for an unknown one.
  int encode(AVFrame* picture, int64_t duration = 0);

  // The next picture that is encoded becomes one at which a decoder can begin. Any thread.
  void request_key_picture() { key_wanted = true; }

  // From the next picture on, where the encoder can; no higher than the rate it was opened with.
  void set_bit_rate(int64_t bit_rate);
  // Bits per second, as set; 0 where something else decides. Any thread.
  int64_t bit_rate() const { return current_bit_rate; }

  // Time that the last picture took: its conversion here, and the codec.
  int64_t convert_us() const { return converting_us; }
  int64_t encode_us() const { return codec_us; }

  // The next picture of the moving colour pattern, stamped in `tb`.
  AVFrame* generate_test_frame(AVRational tb);

  // The encoder deletes its filter; the audio encoder does not. Hosts rely on the difference. Set
  // by any thread.
  std::atomic<FilterBase*> filter{nullptr};

 private:
  void edit(AVPacket* packet) override;
  // The picture in the codec's format and size; null when it cannot be made so.
  AVFrame* convert(AVFrame* picture);
  bool borrow(const AVFrame& picture);
  int encode_borrowed();
  bool draw_test_picture();

  std::atomic<bool> key_wanted{false};
  std::atomic<int64_t> current_bit_rate{0};
  VariableBitRate rate;
  int64_t converting_us = 0;     // of the last picture
  PictureTimes times;            // at a variable rate
  FramePtr borrowed;             // the picture as the codec gets it; owns no buffers
  PictureFormat movie;           // of the codec's pictures
  PictureConverter from_filter;  // for pictures as the last one was
  PictureConverter from_pattern;
  int64_t pattern_period_sec = 10;
  int pattern_counter = 0;
};

}  // namespace zeva
