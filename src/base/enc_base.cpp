#include "enc_base.h"

#include <algorithm>
#include <utility>

#include "av_error.h"
#include "logger.h"

namespace zeva {

EncBase::EncBase(const Kind& kind, NewStream stream, BaseWriter* writer, Tell tell)
    : enc(std::move(stream.encoder)),
      timing(stream.timing),
      host(stream.host),
      kind(kind),
      stream(stream.stream),
      stream_index(stream.stream != nullptr ? stream.stream->index : -1),
      writer(writer),
      tell(std::move(tell)),
      pkt(av_packet_alloc()) {}

Status EncBase::open_codec() {
  int result = pkt ? avcodec_open2(enc.get(), nullptr, nullptr) : AVERROR(ENOMEM);
  if (result >= 0) result = avcodec_parameters_from_context(stream->codecpar, enc.get());
  if (result >= 0) return Status::success();
  const std::string text =
      std::string("Could not open ") + kind.stream + " codec: " + av_error_text(result);
  ZEVA_LOG(kLogError, "%s", text.c_str());
  return Status::failure(result, text);
}

void EncBase::close() {
  enc.reset();
  frame.reset();
  tmp_frame.reset();
  pkt.reset();
}

int EncBase::encode_prepared(const AVFrame* prepared) {
  if (!enc) return kNotOpen;
  Drained drained;
  {
    const Lap lap(codec_us);
    drained.error = avcodec_send_frame(enc.get(), prepared);
  }
  if (drained.error >= 0) drained = drain();
  if (drained.error < 0) {
    report_refusal(drained.error, prepared == nullptr);
    return kRefusedByCodec;
  }
  codec_refuses = false;
  // A picture that is held back meets the same fate as the packet before it.
  return drained.lost || writer_refuses ? kRefusedByWriter : drained.count;
}

EncBase::Drained EncBase::drain() {
  Drained drained;
  for (;; ++drained.count) {
    const int result = receive();
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return drained;
    if (result < 0) {
      drained.error = result;
      return drained;
    }
    edit(pkt.get());
    if (!write(*pkt)) drained.lost = true;
    av_packet_unref(pkt.get());
  }
}

// Timed apart from the writer, which may wait for room.
int EncBase::receive() {
  const Lap lap(codec_us);
  return avcodec_receive_packet(enc.get(), pkt.get());
}

void EncBase::count(const AVPacket& packet) {
  ++packet_count;
  packets_length += packet.duration;
  const int64_t end = av_rescale_q(packet.pts + packet.duration, timing.units, kMicroseconds);
  packets_end_us = std::max(packets_end_us.load(), end);
}

bool EncBase::write(AVPacket& packet) {
  count(packet);
  packet.stream_index = stream_index;
  const int result = writer->write_packet(timing.units, &packet, true);
  if (result < 0 && !writer_refuses) {
    ZEVA_LOG(kLogError, "[write-packet] error while writing %s frame: ret=%d, %s", kind.stream,
             result, av_error_text(result));
  }
  writer_refuses = result < 0;
  return !writer_refuses;
}

void EncBase::report_refusal(int error, bool flushing) {
  const std::string text = av_error_text(error);
  ZEVA_LOG(kLogError, "[%s] enc frame failed: %s", kind.stream, text.c_str());
  // The host knows of a run of refusals, but not that it loses what was encoded before, too.
  if (codec_refuses && !flushing) return;
  codec_refuses = true;
  const std::string what =
      flushing ? "lost what it held back" : std::string("refused ") + kind.frame;
  tell(kind.refused_code, std::string("the ") + kind.stream + " encoder " + what + ": " + text);
}

}  // namespace zeva
