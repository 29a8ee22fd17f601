// What the two encoders share.
#pragma once

#include "av_handles.h"
#include "ZV_AVWriter.h"
#include "zeva/movie_info.h"

namespace zeva {

// One stream of the output with its encoder.
struct OutputStream {
  CodecContextPtr enc;
  AVStream* st = nullptr;  // belongs to the output context
  int64_t next_pts = 0;    // test signals only: frames or samples generated
  FramePtr frame;          // the encoder's own frame, in its format and size
  FramePtr tmp_frame;      // the test signals' frame
  PacketPtr pkt;           // for every packet received
};

// Owns nothing but its copy of the settings; the OutputStream is the muxer's. Used by one thread at
// a time.
class EncBase {
 public:
  explicit EncBase(ZV::ZV_AVWriter* writer) : writer(writer) {}
  virtual ~EncBase() = default;
  EncBase(const EncBase&) = delete;
  EncBase& operator=(const EncBase&) = delete;

 protected:
  // Takes every packet the codec has ready, lets `edit` see it, and hands it to the writer. The
  // number of packets, or -3 when the writer refused one; the others are handed on all the same,
  // since a further output may still take them.
  template <typename Edit>
  int drain(OutputStream& ost, const char* kind, Edit edit);
  bool write(OutputStream& ost, const char* kind);

  MovieInfo info{};
  ZV::ZV_AVWriter* writer;     // outlives the encoder
  bool refusing = false;  // the writer refused the last packet; told once, not for every packet
};

template <typename Edit>
int EncBase::drain(OutputStream& ost, const char* kind, Edit edit) {
  int count = 0;
  bool refused = false;
  while (true) {
    const int received = avcodec_receive_packet(ost.enc.get(), ost.pkt.get());
    if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) break;
    if (received < 0) break;  // nothing was received; the codec reported why when it was fed
    ++count;
    edit(ost.pkt.get());
    if (!write(ost, kind)) refused = true;
    av_packet_unref(ost.pkt.get());
  }
  return refused ? -3 : count;
}

}  // namespace zeva
