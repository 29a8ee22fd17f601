// The common base of the two encoders.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "av_error.h"
#include "av_handles.h"
#include "base_writer.h"
#include "call_times.h"
#include "picture_format.h"
#include "picture_times.h"
#include "status.h"
#include "zeva/movie_info.h"

namespace zeva {

// A stream of the output and its encoder, configured but not yet open.
struct NewStream {
  AVStream* stream = nullptr;  // belongs to the output context
  CodecContextPtr encoder;     // null: no stream could be made
  PictureTiming timing;        // of sound only the units
  PictureFormat host;          // the pictures that the host announced
  std::string fault;           // an option that this encoder cannot take, as a sentence
};

// Results of encoding that are no number of packets.
enum EncodeResult {
  kNotOpen = -1,
  kRefusedByCodec = -2,
  kRefusedByWriter = -3,
  kLeftOut = -4,  // the host's filter dropped the frame, or it cannot be converted
};

// Owns the codec, its frames and its packet. Used by one thread at a time; two encoders share
// nothing but the writer.
class EncBase {
 public:
  // Gets what the host must know, with its status code, on the thread that encodes.
  using Tell = std::function<void(int code, const std::string& text)>;

  virtual ~EncBase() = default;
  EncBase(const EncBase&) = delete;
  EncBase& operator=(const EncBase&) = delete;

  // Frees codec, frames and packet. Safe to call again.
  void close();

  // Units of the frames' and packets' times.
  AVRational time_base() const { return timing.units; }
  // Of the packets so far. Any thread.
  int64_t packets() const { return packet_count; }
  int64_t duration_us() const { return av_rescale_q(packets_length, timing.units, kMicroseconds); }
  // Movie time at which the latest one ends; AV_NOPTS_VALUE before the first. Any thread.
  int64_t end_us() const { return packets_end_us; }
  // In the codec's format and size; its buffers are shared with the converters.
  AVFrame* dst_frame() { return frame.get(); }

 protected:
  // Words of the messages, and the status code for what the codec refuses.
  struct Kind {
    const char* stream;
    const char* frame;
    int refused_code;
  };

  EncBase(const Kind& kind, NewStream stream, BaseWriter* writer, Tell tell);

  Status open_codec();
  // Feeds the codec (null: flushes it) and hands every packet to the writer; those behind one that
  // the writer refused as well, since a further output may still take them. The number of packets,
  // or an EncodeResult.
  int encode_prepared(const AVFrame* prepared);
  virtual void edit(AVPacket* packet) = 0;
  // False when the writer refused the packet.
  bool write(AVPacket& packet);
  void report_refusal(int error, bool flushing);

  MovieInfo info{};
  CodecContextPtr enc;
  const PictureTiming timing;
  const PictureFormat host;  // pictures only
  FramePtr frame;            // the encoder's own frame, in its format and size
  FramePtr tmp_frame;        // the test signals' frame
  int64_t next_pts = 0;      // test signals only: frames or samples generated
  int64_t codec_us = 0;      // time spent in the codec

 private:
  struct Drained {
    int count = 0;      // packets handed to the writer
    bool lost = false;  // one of them was refused
    int error = 0;      // the codec's
  };
  Drained drain();
  int receive();
  void count(const AVPacket& packet);

  const Kind kind;
  // Until the output is open: a live stream has a new context for each of its connections.
  AVStream* const stream;
  const int stream_index;
  BaseWriter* const writer;  // outlives the encoder
  const Tell tell;
  PacketPtr pkt;
  std::atomic<int64_t> packet_count{0};
  std::atomic<int64_t> packets_length{0};  // in the timing's units
  std::atomic<int64_t> packets_end_us{AV_NOPTS_VALUE};
  bool codec_refuses = false;   // what came last; told once, not for every frame
  bool writer_refuses = false;  // the same for packets
};

}  // namespace zeva
