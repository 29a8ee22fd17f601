#include "video_track.h"

#include <algorithm>
#include <utility>

#include "picture_turn.h"

namespace zeva_tool {
namespace {

constexpr AVRational kFallbackRate{25, 1};

}  // namespace

VideoTrack::VideoTrack(std::string the_name, PacketReader& the_reader, const AVStream& the_stream,
                       std::optional<AVRational> the_rate)
    : name(std::move(the_name)), reader(the_reader), stream(the_stream), rate(the_rate) {}

Status VideoTrack::check() const {
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.codec_id != AV_CODEC_ID_H264) {
    return Status(name + ": its pictures are " + avcodec_get_name(parameters.codec_id) +
                  ", not H.264; `zeva record` encodes them anew, --no-video leaves them out");
  }
  if (parameters.width <= 0) return Status(name + " holds no H.264 pictures");
  if (rate && parameters.video_delay > 0) {
    return Status(name + ": its pictures are stored in another order than they are shown " +
                  "(B-frames), and a bare stream does not hold their times; a movie with times, " +
                  "such as an MP4, is taken as --input");
  }
  return {};
}

int VideoTrack::rotation_deg() const { return turns_of(stream) * 90; }

// Extradata of length-prefixed H.264 starts with its version, that of Annex B with a start code.
bool VideoTrack::length_prefixed() const {
  return stream.codecpar->extradata_size > 0 && stream.codecpar->extradata[0] == 1;
}

void VideoTrack::describe(MovieInfo2& info) const {
  info.vcodec = kPacketVideoH264;
  if (!length_prefixed()) return;
  info.extradata = stream.codecpar->extradata;
  info.extradata_len = stream.codecpar->extradata_size;
}

std::optional<VideoTrack::Times> VideoTrack::counted_times() const {
  int64_t time_us = av_rescale_q(count, av_inv_q(*rate), kMicroseconds);
  return Times{time_us, time_us};
}

int64_t VideoTrack::interval_us(const AVPacket& packet) const {
  if (packet.duration > 0) return av_rescale_q(packet.duration, stream.time_base, kMicroseconds);
  AVRational mean = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : kFallbackRate;
  return av_rescale_q(1, av_inv_q(mean), kMicroseconds);
}

// Some containers keep no decoding times, and FFmpeg does not find those of the first pictures. Any
// will do that grow and do not lie after the picture's own; the pictures' delay is the usual
// distance. Nothing when there is no such time, or no time at all.
std::optional<VideoTrack::Times> VideoTrack::own_times(const AVPacket& packet) const {
  const bool reordered = stream.codecpar->video_delay > 0;
  int64_t pts = packet.pts == AV_NOPTS_VALUE && !reordered ? packet.dts : packet.pts;
  if (pts == AV_NOPTS_VALUE) return std::nullopt;
  const int64_t shown_us = av_rescale_q(pts, stream.time_base, kMicroseconds);
  int64_t decoded_us = 0;
  if (packet.dts != AV_NOPTS_VALUE) {
    decoded_us = av_rescale_q(packet.dts, stream.time_base, kMicroseconds);
  } else if (last_decoded_us) {
    decoded_us = *last_decoded_us + interval_us(packet);
  } else {
    decoded_us = shown_us - stream.codecpar->video_delay * interval_us(packet);
  }
  decoded_us = std::min(decoded_us, shown_us);
  if (last_decoded_us) decoded_us = std::max(decoded_us, *last_decoded_us + 1);
  return decoded_us <= shown_us ? std::optional(Times{shown_us, decoded_us}) : std::nullopt;
}

// Nothing before the first key picture can be decoded, nor what comes after it and is shown before.
void VideoTrack::place(const AVPacket& packet) {
  bool begins = begin_us || (packet.flags & AV_PKT_FLAG_KEY);
  std::optional<Times> times = !begins ? std::nullopt : rate ? counted_times() : own_times(packet);
  if (times && !begin_us) begin_us = times->shown_us;
  if (times && times->shown_us >= *begin_us) {
    at_hand = times;
    return;
  }
  ++(begins && !times ? untimed : undecodable);
  reader.pop(stream);
}

std::optional<int64_t> VideoTrack::time_us() {
  while (!at_hand) {
    const AVPacket* packet = reader.front(stream);
    if (!packet) return std::nullopt;
    place(*packet);
  }
  return at_hand->decoded_us;
}

std::optional<int64_t> VideoTrack::shown_us() {
  return time_us() ? std::optional(at_hand->shown_us) : std::nullopt;
}

bool VideoTrack::write(void* recording, int64_t shift_us) {
  const AVPacket* packet = reader.front(stream);
  return ZEVA2_write_video_packet2(recording, packet->data, packet->size,
                                   at_hand->shown_us + shift_us, at_hand->decoded_us + shift_us);
}

void VideoTrack::pop() {
  last_decoded_us = at_hand->decoded_us;
  at_hand.reset();
  ++count;
  reader.pop(stream);
}

std::string VideoTrack::warning() const {
  if (!reader.read_error().empty()) {
    return "reading " + name + " ended early: " + reader.read_error();
  }
  std::string text;
  if (undecodable > 0) {
    text = std::to_string(undecodable) + " pictures of " + name +
           " that need others before its first key picture were left out";
  }
  if (untimed > 0) {
    text += (text.empty() ? "" : "; ") + std::to_string(untimed) + " pictures of " + name +
            " without a time, or with one that goes back, were left out";
  }
  return text;
}

}  // namespace zeva_tool
