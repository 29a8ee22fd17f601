#include "stream_decoder.h"

#include <utility>

namespace zeva_tool {
namespace {

// Frames that a decoder holds at the end of its input may fail one by one.
constexpr int kMaxDrainAttempts = 64;

// Where a stream of reordered pictures ends: its packets' durations are those of the order in which
// they are decoded.
int64_t end_of(const AVStream& stream) {
  bool told = stream.codecpar->video_delay > 0 && stream.duration > 0 &&
              stream.start_time != AV_NOPTS_VALUE;
  return told ? av_rescale_q(stream.start_time + stream.duration, stream.time_base, kMicroseconds)
              : AV_NOPTS_VALUE;
}

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
  pictures = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  stream_end_us = end_of(stream);
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
  AVFrame& frame = *in_hand.frame;
  int result = avcodec_receive_frame(codec.get(), &frame);
  if (result == AVERROR(EAGAIN)) return false;
  if (result == AVERROR_EOF) {
    finish();
  } else if (result < 0) {
    ++damaged;
    return false;
  } else {
    if (frame.decode_error_flags || (frame.flags & AV_FRAME_FLAG_CORRUPT)) ++damaged;
    stamp(in_hand);
    take_in();
  }
  return true;
}

// A picture waits for the next one, in whose place it then comes.
void StreamDecoder::take_in() {
  holding = !pictures || has_upcoming;
  if (!pictures) return;
  std::swap(in_hand, upcoming);
  int64_t until_next_us = upcoming.time_us - in_hand.time_us;
  if (has_upcoming && until_next_us > 0) in_hand.duration_us = until_next_us;
  has_upcoming = true;
}

void StreamDecoder::finish() {
  ended = true;
  if (!has_upcoming) return;
  std::swap(in_hand, upcoming);
  has_upcoming = false;
  holding = true;
  if (stream_end_us > in_hand.time_us) in_hand.duration_us = stream_end_us - in_hand.time_us;
}

// False when there is nothing to feed.
bool StreamDecoder::feed() {
  if (packets.empty()) {
    if (!input_ended) return false;
    if (drain_attempts++ == 0) avcodec_send_packet(codec.get(), nullptr);
    if (drain_attempts > kMaxDrainAttempts) finish();
    return true;
  }
  if (avcodec_send_packet(codec.get(), packets.front().get()) < 0) ++damaged;
  queued_bytes -= packets.front()->size;
  packets.pop_front();
  return true;
}

void StreamDecoder::stamp(Decoded& decoded) {
  const AVFrame& frame = *decoded.frame;
  int64_t duration = frame.nb_samples > 0
                         ? av_rescale(frame.nb_samples, 1000000, frame.sample_rate)
                         : av_rescale_q(frame.pkt_duration, time_base, kMicroseconds);
  if (duration <= 0 && frame_rate.num > 0) {
    duration = av_rescale_q(1, av_inv_q(frame_rate), kMicroseconds);
  }
  int64_t pts = frame.best_effort_timestamp;
  if (pts != AV_NOPTS_VALUE) {
    decoded.time_us = av_rescale_q(pts, time_base, kMicroseconds);
  } else {
    decoded.time_us = next_us == AV_NOPTS_VALUE ? 0 : next_us;
  }
  decoded.duration_us = duration;
  next_us = decoded.time_us + duration;
}

}  // namespace zeva_tool
