#include "stream_decoder.h"

#include <utility>

namespace zeva_tool {
namespace {

// Frames that a decoder holds at the end of its input may fail one by one.
constexpr int kMaxDrainAttempts = 64;

}  // namespace

Status StreamDecoder::open(const AVStream& stream) {
  const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
  if (!decoder) {
    return Status(std::string("there is no decoder for ") +
                  avcodec_get_name(stream.codecpar->codec_id));
  }
  codec.reset(avcodec_alloc_context3(decoder));
  int result = avcodec_parameters_to_context(codec.get(), stream.codecpar);
  codec->pkt_timebase = stream.time_base;
  codec->thread_count = 0;  // as many as there are processors
  if (result >= 0) result = avcodec_open2(codec.get(), decoder, nullptr);
  if (result < 0) return Status(std::string(decoder->name) + ": " + av_text(result));
  time_base = stream.time_base;
  if (stream.avg_frame_rate.num > 0) frame_rate = stream.avg_frame_rate;
  return {};
}

void StreamDecoder::push(PacketPtr packet) {
  queued_bytes += packet->size;
  packets.push_back(std::move(packet));
}

bool StreamDecoder::advance() {
  while (!holding && !ended) {
    if (!receive() && !holding && !ended && !feed()) return false;
  }
  return holding;
}

// True when the decoder's state moved on.
bool StreamDecoder::receive() {
  int result = avcodec_receive_frame(codec.get(), current.get());
  if (result == AVERROR(EAGAIN)) return false;
  if (result == AVERROR_EOF) {
    ended = true;
  } else if (result < 0) {
    ++damaged;
    return false;
  } else {
    if (current->decode_error_flags || (current->flags & AV_FRAME_FLAG_CORRUPT)) ++damaged;
    stamp();
    holding = true;
  }
  return true;
}

// False when there is nothing to feed.
bool StreamDecoder::feed() {
  if (packets.empty()) {
    if (!input_ended) return false;
    if (drain_attempts++ == 0) avcodec_send_packet(codec.get(), nullptr);
    if (drain_attempts > kMaxDrainAttempts) ended = true;
    return true;
  }
  if (avcodec_send_packet(codec.get(), packets.front().get()) < 0) ++damaged;
  queued_bytes -= packets.front()->size;
  packets.pop_front();
  return true;
}

void StreamDecoder::stamp() {
  int64_t duration = current->nb_samples > 0
                         ? av_rescale(current->nb_samples, 1000000, current->sample_rate)
                         : av_rescale_q(current->pkt_duration, time_base, kMicroseconds);
  if (duration <= 0 && frame_rate.num > 0) {
    duration = av_rescale_q(1, av_inv_q(frame_rate), kMicroseconds);
  }
  int64_t pts = current->best_effort_timestamp;
  if (pts != AV_NOPTS_VALUE) {
    current_us = av_rescale_q(pts, time_base, kMicroseconds);
  } else {
    current_us = next_us == AV_NOPTS_VALUE ? 0 : next_us;
  }
  current_duration_us = duration;
  next_us = current_us + duration;
}

}  // namespace zeva_tool
