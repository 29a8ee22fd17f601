#include "enc_base.h"

#include <utility>

#include "av_error.h"
#include "logger.h"

namespace zeva {

EncBase::EncBase(const Kind& kind, NewStream stream, ZV::ZV_AVWriter* writer, Tell tell)
    : enc(std::move(stream.encoder)),
      kind(kind),
      stream(stream.stream),
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
  int count = 0;
  int result = avcodec_send_frame(enc.get(), prepared);
  if (result >= 0) result = drain(&count);
  if (result < 0) {
    report_refusal(result, prepared == nullptr);
    return kRefusedByCodec;
  }
  codec_refuses = false;
  return writer_refuses ? kRefusedByWriter : count;
}

// Until the codec has no more. A negative result is the codec's.
int EncBase::drain(int* count) {
  for (;; ++*count) {
    const int result = avcodec_receive_packet(enc.get(), pkt.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return 0;
    if (result < 0) return result;
    edit(pkt.get());
    write();
    av_packet_unref(pkt.get());
  }
}

void EncBase::write() {
  pkt->stream_index = stream->index;
  const int result = writer->write_packet(enc->time_base, pkt.get(), true);
  if (result < 0 && !writer_refuses) {
    ZEVA_LOG(kLogError, "[write-packet] error while writing %s frame: ret=%d, %s", kind.stream,
             result, av_error_text(result));
  }
  writer_refuses = result < 0;
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
